#!/usr/bin/env bash
# Hand-made faults in the wire, value and binding code, and whether the unit
# tests catch each. Every NN-name.patch beside this script is one fault: it is
# applied to the checkout, the library and the unit test programs are rebuilt
# in an incremental build directory, the unit tests run (ctest -L unit, which
# holds the scripted-peer tests; no interop test is needed), and the patch is
# taken back out, also when the run is interrupted.
#
#   bash tests/faults/run.sh [patch...]
#
# Prints "NN-name: caught by TEST[, ...]" or "NN-name: MISSED" per fault and a
# total; exits non-zero when a fault was missed or could not be tried.
# FAULTS_BUILD names the build directory (default build/faults in the
# checkout). Slow (a rebuild per fault), so it is not part of CI.
set -u

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(git -C "$here" rev-parse --show-toplevel) || exit 2
build=${FAULTS_BUILD:-$root/build/faults}
logs=$build/fault-logs
mkdir -p "$logs"

if [ $# -gt 0 ]; then
    patches=()
    for p in "$@"; do
        case $p in
            */*) patches+=("$(cd "$(dirname "$p")" && pwd)/$(basename "$p")") ;;
            *) patches+=("$here/$p") ;;
        esac
    done
else
    patches=("$here"/[0-9]*.patch)
fi

# The patch being tried. It is named before it is applied, so that a signal
# arriving during the apply still takes it back out; revert looks first
# whether it is in.
applied=""
revert() {
    if [ -n "$applied" ] && git -C "$root" apply -R --check "$applied" 2>/dev/null; then
        git -C "$root" apply -R "$applied" || echo "could not take $applied back out" >&2
    fi
    applied=""
}
trap revert EXIT
trap 'revert; exit 130' INT TERM

build_tree() {
    if [ ! -f "$build/CMakeCache.txt" ]; then
        cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DORBELLE_BENCH=OFF >"$logs/configure.log" 2>&1 ||
            return 1
    fi
    cmake --build "$build" -j2 >"$1" 2>&1
}

# Runs the unit tests; prints the names of the failed ones, one a line.
failed_tests() {
    timeout 900 ctest --test-dir "$build" -L unit -j2 --timeout 120 >"$1" 2>&1
    sed -n 's/^[[:space:]]*[0-9]* - \([^ ]*\) (.*$/\1/p' "$1" | sort -u
    # ctest stopped by the time-out lists nothing: count that as a failure.
    if ! grep -q 'tests passed, [0-9]* tests failed' "$1"; then echo "(ctest did not finish)"; fi
}

start=$(date +%s)
echo "building the clean tree in $build"
if ! build_tree "$logs/clean.build.log"; then
    echo "the clean tree does not build: see $logs/clean.build.log"
    exit 2
fi
clean_failures=$(failed_tests "$logs/clean.ctest.log")
if [ -n "$clean_failures" ]; then
    echo "the unit tests fail without a fault, so no fault can be judged:"
    echo "$clean_failures"
    exit 2
fi

caught=0
missed=0
broken=0
for patch in "${patches[@]}"; do
    name=$(basename "$patch" .patch)
    if ! git -C "$root" apply --check "$patch" 2>"$logs/$name.apply.log"; then
        echo "$name: does not apply (see $logs/$name.apply.log)"
        broken=$((broken + 1))
        continue
    fi
    applied=$patch
    git -C "$root" apply "$patch"
    if ! build_tree "$logs/$name.build.log"; then
        revert
        echo "$name: does not build (see $logs/$name.build.log)"
        broken=$((broken + 1))
        continue
    fi
    failures=$(failed_tests "$logs/$name.ctest.log")
    revert
    if [ -z "$failures" ]; then
        echo "$name: MISSED"
        missed=$((missed + 1))
    else
        count=$(echo "$failures" | wc -l)
        shown=$(echo "$failures" | head -3 | paste -sd, - | sed 's/,/, /g')
        [ "$count" -gt 3 ] && shown="$shown (+$((count - 3)) more)"
        echo "$name: caught by $shown"
        caught=$((caught + 1))
    fi
done

# Leaves the build directory matching the clean tree.
build_tree "$logs/clean.build.log" || echo "the clean tree no longer builds?" >&2
echo "total: ${#patches[@]} faults, $caught caught, $missed missed, $broken not tried;" \
    "$(($(date +%s) - start)) s"
[ "$missed" -eq 0 ] && [ "$broken" -eq 0 ]
