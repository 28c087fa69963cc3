#!/usr/bin/env bash
# Side by side, in one run: Orbelle through _iiop_entry, omniORB's static-stub
# client, and a raw TCP replay of Orbelle's own Request and Reply bytes, all
# against one omniORB echo server, everything pinned to CPU 0 (a wake-up that
# crosses CPUs costs more than a loopback round trip).
#
#   bash bench/compare.sh [SECONDS]     # seconds per run, default 3 (ROUNDS=3 runs)
#   bash bench/compare.sh --callgrind   # instructions per call inside _iiop_entry
#
# Builds what it needs in build/bench (Release). Prints calls/s per client
# and the ratios of Orbelle to each yardstick. ORBELLE_LIBRARY=path measures
# another build of the library with the same clients.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
callgrind=
if [ "${1:-}" = --callgrind ]; then callgrind=1; shift; fi
seconds=${1:-3}
build=${ORBELLE_BENCH_BUILD:-$root/build/bench}
cpu=0

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j2 --target orbelle compare_client omni_stub_client echo_server >/dev/null

work=$(mktemp -d /tmp/orbelle-compare-XXXXXX)
# shellcheck source=bench/echo_server.sh
. "$root/bench/echo_server.sh"

# ORBELLE_LIBRARY compares another build of the library (an older one, say).
library=${ORBELLE_LIBRARY:-$build/lib/liborbelle.so}
orbelle() { (cd "$work" && taskset -c $cpu "$build/bin/compare_client" "$1" "$library" "$ior" "$2" "$seconds"); }
# omniORB's client prints seconds per call for a given number of calls.
omni() {
    local per_call
    per_call=$(taskset -c $cpu "$build/bin/omni_stub_client" "$ior" "$1" "$2" "$3" -ORBmaxGIOPVersion 1.0)
    python3 -c "print(round(1 / $per_call))"
}

if [ -n "$callgrind" ]; then
    # Two runs that differ by 100 calls: start-up and warm-up cancel out.
    instructions() {  # case, calls
        (cd "$work" && valgrind --tool=callgrind --callgrind-out-file="$work/cg.$2" \
            --toggle-collect=_iiop_entry "$build/bin/compare_client" orbelle "$library" "$ior" \
            "$1" "${2}x" >/dev/null 2>&1)
        callgrind_annotate "$work/cg.$2" | sed -n 's/^ *\([0-9,]*\) .*PROGRAM TOTALS.*/\1/p' | tr -d ,
    }
    for c in add string longs; do
        echo "$c: $(( ($(instructions $c 200) - $(instructions $c 100)) / 100 )) instructions per call"
    done
    exit 0
fi

printf '%-22s %12s %12s %12s %9s %9s\n' call Orbelle omniORB "raw TCP" "/omniORB" "/raw"
# Each figure is the best of ROUNDS runs (default 3), the three clients in
# turn: other work on the machine only ever makes a run slower. The machine's
# speed also drifts between rounds, so each ratio is the median of the
# rounds' own ratios, whose clients ran back to back.
rounds=${ROUNDS:-3}
best() { python3 -c "import sys; print(max(int(x) for x in sys.argv[1:]))" "$@"; }
median_ratio() {  # "a1 a2 ..." "b1 b2 ...": the median of a_i / b_i
    python3 -c "
import statistics, sys
a, b = (list(map(float, x.split())) for x in sys.argv[1:])
print(statistics.median(x / y for x, y in zip(a, b)))" "$1" "$2"
}
row() {  # label, case, omniORB mode, length, calls
    local ours=() theirs=() raw=() o t r
    for _ in $(seq "$rounds"); do
        ours+=("$(orbelle orbelle "$2")")
        theirs+=("$(omni "$3" "$4" "$5")")
        raw+=("$(orbelle raw "$2")")
    done
    o=$(best "${ours[@]}"); t=$(best "${theirs[@]}"); r=$(best "${raw[@]}")
    python3 -c "print('%-22s %12d %12d %12d %9.2f %9.2f' % ('$1', $o, $t, $r,
        $(median_ratio "${ours[*]}" "${theirs[*]}"), $(median_ratio "${ours[*]}" "${raw[*]}")))"
    last_theirs=$t last_raw=$r
}
row "add(long, long)" add add 0 $((seconds * 60000))
row "echo 5,000 chars" string string 5000 $((seconds * 30000))
row "1000 longs in and out" longs seq 1000 $((seconds * 20000))
# The floor of the text model for the bulk call: the host's own work on the
# same list (read 1000 texts, give back and take 1000 texts), timed alone,
# added to the raw replay's round trip. No client of this host can pass it.
floors=()
for _ in $(seq "$rounds"); do floors+=("$(orbelle floor longs)"); done
f=$(best "${floors[@]}")
python3 -c "
bound = 1 / (1 / $f + 1 / $last_raw)
print('%-22s %12d %12s %12s %9.2f %9.2f' % ('  its text floor', bound, '', '', bound / $last_theirs, bound / $last_raw))
print('(the text floor: %.1f us a call of text work by the host, plus the raw round trip)' % (1e6 / $f))"
