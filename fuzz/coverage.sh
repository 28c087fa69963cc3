#!/usr/bin/env bash
# Which lines of the library the committed seed corpora reach: builds the
# fuzz targets with clang's source coverage, runs each once over its
# fuzz/corpus/<target> folder, and prints the line coverage per library folder.
#   bash fuzz/coverage.sh
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
dir=build/coverage
flags="-fprofile-instr-generate -fcoverage-mapping"
CC=clang CXX=clang++ cmake -S . -B "$dir" -DORBELLE_FUZZ=ON -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS="-fprofile-instr-generate" >"$dir.configure.log"
cmake --build "$dir" -j"$(nproc)" >"$dir.build.log"
rm -rf "$dir/profiles" && mkdir -p "$dir/profiles"
objects=()
for src in fuzz/*_fuzz.cpp; do
  name=$(basename "$src" .cpp)
  [ -d "fuzz/corpus/$name" ] || continue
  LLVM_PROFILE_FILE="$dir/profiles/$name.profraw" \
    "$dir/bin/$name" -runs=0 "fuzz/corpus/$name" >"$dir/$name.log" 2>&1 || true
  objects+=(-object "$dir/bin/$name")
done
llvm-profdata-14 merge -sparse "$dir"/profiles/*.profraw -o "$dir/merged.profdata"
llvm-cov-14 report -instr-profile="$dir/merged.profdata" "${objects[@]:1}" \
  >"$dir/report.txt"
# Per folder: lines covered of the lines that have code.
awk -v root="$root/" '
  $1 ~ /\.(cpp|h)$/ {
    file = $1; sub(root, "", file); split(file, part, "/")
    folder = part[1]
    if (folder !~ /^(gateway|script|repository|data|giop|trace|platform)$/) next
    lines[folder] += $8; missed[folder] += $9
    all += $8; allmissed += $9
  }
  END {
    for (f in lines) printf "%-11s %6d lines  %5.1f%% covered\n", f, lines[f], 100 * (lines[f] - missed[f]) / lines[f]
    printf "%-11s %6d lines  %5.1f%% covered\n", "library", all, 100 * (all - allmissed) / all
  }' "$dir/report.txt" | sort
