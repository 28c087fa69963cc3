#!/usr/bin/env bash
# Line and branch coverage of the library and the tools by every test:
# builds the normal configuration with clang's source-based coverage, runs
# ctest (each test program, and every orbelle-run, orbelle-record and host
# they start, writes its profile), and prints the totals for the library
# (liborbelle.so) and for the tools (orbelle-run with its runner library,
# orbelle-record), then per folder.
#
#   bash tests/coverage.sh            into build/test-coverage
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
dir=$root/build/test-coverage
flags="-fprofile-instr-generate -fcoverage-mapping"
mkdir -p "$dir"
CC=clang CXX=clang++ cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DORBELLE_BENCH=OFF \
  -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS="-fprofile-instr-generate" \
  -DCMAKE_SHARED_LINKER_FLAGS="-fprofile-instr-generate" >"$dir.configure.log"
cmake --build "$dir" -j"$(nproc)" >"$dir.build.log"
rm -rf "$dir/profiles" && mkdir -p "$dir/profiles"
LLVM_PROFILE_FILE="$dir/profiles/%p-%m.profraw" ctest --test-dir "$dir" -j"$(nproc)" \
  --timeout 300 >"$dir.ctest.log" 2>&1 || true
grep -E 'tests passed' "$dir.ctest.log"
llvm-profdata-14 merge -sparse "$dir"/profiles/*.profraw -o "$dir/merged.profdata"
report() {  # name objects...
  local name=$1; shift
  local objects=("$1"); shift
  for o in "$@"; do objects+=(-object "$o"); done
  llvm-cov-14 report -instr-profile="$dir/merged.profdata" "${objects[@]}" \
    -ignore-filename-regex='(tests|fuzz|third_party|googletest|/usr)/' >"$dir/$name.txt"
  awk -v name="$name" '$1 == "TOTAL" {
    printf "%-8s lines %s of %s covered (%s), branches %s of %s (%s)\n", name,
      $8 - $9, $8, $10, $11 - $12, $11, $13 }' "$dir/$name.txt"
}
report library "$dir/lib/liborbelle.so"
tools=("$dir/bin/orbelle-run")
[ -x "$dir/bin/orbelle-record" ] && tools+=("$dir/bin/orbelle-record")
report tools "${tools[@]}"
echo "per file: $dir/library.txt, $dir/tools.txt"
