#!/usr/bin/env bash
# What a request of a load run costs in CPU, side by side in one run with
# omniORB's own client making the same call on the same server, everything
# pinned to CPU 0 as bench/compare.sh pins it:
#  1. orbelle-run --users 2 for SECONDS, an iteration of bind, params, two
#     sets, invoke add and check: requests/s, and CPU per request of the
#     runner and its users together;
#  2. omniORB's static-stub client calling add: CPU per call;
#  3. one runner process, no users: CPU per call when an iteration makes
#     one call, and when it makes ten.
# The per-call figures of 2 and 3 leave the start of the process out (a
# run of 2n calls less a run of n); the load run's include its start.
#
#   bash bench/load_cpu.sh [SECONDS]     # default 10; ROUNDS=3 runs, best of each
#
# Builds what it needs in build/bench (Release). ORBELLE_RUN_FLAGS adds
# options to every orbelle-run (--fresh-binds, say); ORBELLE_RUN=path
# measures another build of orbelle-run (an older one, say).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
seconds=${1:-10}
rounds=${ROUNDS:-3}
build=${ORBELLE_BENCH_BUILD:-$root/build/bench}
flags=${ORBELLE_RUN_FLAGS:-}
cpu=0

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j2 --target orbelle orbelle-run omni_stub_client echo_server >/dev/null

work=$(mktemp -d /tmp/orbelle-load-cpu-XXXXXX)
# shellcheck source=bench/echo_server.sh
. "$root/bench/echo_server.sh"

call() {  # n: one call of add and its check
    printf 'params echo add\nset a %s\nset b 1\ninvoke\ncheck ^add %s\n' "$1" "$(($1 + 1))"
}
{ echo "bind echo IDL:EchoTest/Echo:1.0 echo IOR $ior"; call 41; } >"$work/one.orb"
{ echo "bind echo IDL:EchoTest/Echo:1.0 echo IOR $ior"; for i in $(seq 10); do call "$i"; done; } >"$work/ten.orb"

# CPU seconds of a command and everything it waited for, and its output.
cpu_of() {
    python3 - "$@" <<'PY'
import resource, subprocess, sys
out = subprocess.run(sys.argv[1:], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
u = resource.getrusage(resource.RUSAGE_CHILDREN)
print(u.ru_utime + u.ru_stime)
print(out)
PY
}
run=(taskset -c $cpu "${ORBELLE_RUN:-$build/bin/orbelle-run}" -C "$work")
# CPU per call of a client without its start: the difference between a run
# of 2n calls and a run of n, divided by n.
per_call() {  # n command... (with CALLS in its words for the count)
    local n=$1 a b
    shift
    a=$(cpu_of "${@//CALLS/$n}" | sed -n 1p)
    b=$(cpu_of "${@//CALLS/$((2 * n))}" | sed -n 1p)
    python3 -c "import sys; print(f'{(float(sys.argv[2]) - float(sys.argv[1])) / $n * 1e6:.1f}')" "$a" "$b"
}
load_row=() omni_row=() one_row=() ten_row=()
for _ in $(seq "$rounds"); do
    # shellcheck disable=SC2086
    out=$(cpu_of "${run[@]}" $flags --users 2 --duration "$seconds" one.orb)
    load_row+=("$(python3 - "$out" <<'PY'
import re, sys
lines = sys.argv[1].split("\n", 1)
cpu, text = float(lines[0]), lines[1]
m = re.search(r"(\d+) requests in ([0-9.]+) s \(([0-9.]+)/s\)", text)
its = int(re.search(r"(\d+) iterations", text).group(1))
print(f"{its / float(m.group(2)):.0f}:{its}:{cpu / its * 1e6:.1f}")
PY
)")
    n=$((seconds * 3000))
    omni_row+=("$(per_call "$n" taskset -c $cpu "$build/bin/omni_stub_client" "$ior" add 0 CALLS -ORBmaxGIOPVersion 1.0)")
    # shellcheck disable=SC2086
    one_row+=("$(per_call "$n" "${run[@]}" $flags --quiet --iterations CALLS one.orb)")
    # shellcheck disable=SC2086
    ten_row+=("$(per_call "$((n / 10))" "${run[@]}" $flags --quiet --iterations CALLS ten.orb)")
done
python3 - "${load_row[*]}" "${omni_row[*]}" "${one_row[*]}" "${ten_row[*]}" <<'PY'
import sys
load = [tuple(map(float, x.split(":"))) for x in sys.argv[1].split()]
omni, one, ten = (list(map(float, a.split())) for a in sys.argv[2:5])
rate = max(l[0] for l in load)
per_request = min(l[2] for l in load)
o, a, b = min(omni), min(one), min(ten) / 10  # ten calls an iteration
print(f"--users 2, iteration = bind, params, set, set, invoke add, check (best of {len(load)})")
print(f"  {rate:8.0f} iterations/s, {per_request:6.1f} us of CPU per call (runner and users)")
print(f"omniORB's client, add:   {o:6.1f} us of CPU per call")
print(f"  load run / omniORB:    {per_request / o:6.2f}")
print(f"one process, one call an iteration:  {a:6.1f} us of CPU per call")
print(f"one process, ten calls an iteration: {b:6.1f} us of CPU per call")
print(f"  one / ten:             {a / b:6.2f}")
PY
