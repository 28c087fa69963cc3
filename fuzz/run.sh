#!/usr/bin/env bash
# A long run of one fuzz target over its committed seeds:
#   bash fuzz/run.sh reply_fuzz 3600
# New inputs go to build/fuzz/corpus-run/<target> (merge the useful ones into
# fuzz/corpus/<target> with -merge=1); a finding is written to build/fuzz/.
set -euo pipefail
cd "$(dirname "$0")/.."
target=${1:?usage: fuzz/run.sh TARGET SECONDS}
seconds=${2:?usage: fuzz/run.sh TARGET SECONDS}
dir=build/fuzz
if [ ! -x "$dir/bin/$target" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$dir" -DORBELLE_FUZZ=ON >"$dir.configure.log"
  cmake --build "$dir" -j"$(nproc)" --target "$target" >"$dir.build.log"
fi
[ -d "fuzz/corpus/$target" ] || { echo "no seed folder fuzz/corpus/$target" >&2; exit 2; }
mkdir -p "$dir/corpus-run/$target"
# The final statistics give the number of executions (stat::number_of_executed_units).
exec "$dir/bin/$target" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$dir/" \
  "$dir/corpus-run/$target" "fuzz/corpus/$target"
