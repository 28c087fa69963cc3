#!/usr/bin/env bash
# What load mode costs, by hand (not in CI), against the demo bank server on
# loopback:
#  1. one user under --users 1 against the same script run alone, calls/s of
#     each (client and server pinned to one CPU, as bench/compare.sh does);
#  2. the runner's own CPU while its users write about 20,000 events a
#     second (empty transactions, which cost the users next to nothing).
#
#   bash bench/load_costs.sh [BUILD_DIR]      (default build/normal)
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build/normal}")
calls=${CALLS:-20000}
work=$(mktemp -d)
server_pid=""
trap '[ -n "$server_pid" ] && kill $server_pid 2>/dev/null; rm -rf "$work"' EXIT

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
OMNIORB_CONFIG=/dev/null taskset -c 0 "$build/bin/bank_server" \
  -ORBendPoint "giop:tcp:127.0.0.1:$port" -ORBmaxGIOPVersion 1.0 -iorlist "$work/list" \
  -quiet >"$work/server.log" 2>&1 &
server_pid=$!
for _ in $(seq 100); do grep -q ready "$work/server.log" && break; sleep 0.1; done
ln -s "$PWD/demo/idl" "$work/idl"
cat >"$work/calls.orb" <<'ORB'
bind diag IDL:Banking/Diagnostics:1.0 Diagnostics "FILE(list)"
params diag echo_long
set a ${ITERATION}
set c 1
invoke
ORB
run="$build/bin/orbelle-run"
rate() {  # seconds calls
  python3 -c "import sys; print(f'{int(sys.argv[2]) / float(sys.argv[1]):.0f}')" "$@"
}
timed() {
  local t0 t1
  t0=$(date +%s.%N)
  "$@" >/dev/null 2>&1 || true
  t1=$(date +%s.%N)
  python3 -c "print($t1 - $t0)"
}
echo "== one user, $calls iterations of bind, params, invoke echo_long; best of 3 rounds"
alone=() loaded=()
for _ in 1 2 3; do
  alone+=("$(timed taskset -c 0 "$run" -C "$work" --quiet --iterations "$calls" calls.orb)")
  loaded+=("$(timed taskset -c 0 "$run" -C "$work" --users 1 --iterations "$calls" calls.orb)")
done
python3 - "$calls" "${alone[*]}" "${loaded[*]}" <<'PY'
import sys
calls = int(sys.argv[1])
alone = min(map(float, sys.argv[2].split()))
loaded = min(map(float, sys.argv[3].split()))
print(f"alone:     {calls / alone:8.0f} iterations/s")
print(f"--users 1: {calls / loaded:8.0f} iterations/s  ({alone / loaded:.2f} times alone)")
PY

echo "== the runner reading about 20,000 events a second for 10 s"
{
  for _ in $(seq 49); do printf 'begin t\nend t\n'; done
  echo 'pace 10'
} >"$work/events.orb"
"$run" -C "$work" --users 4 --duration 10 events.orb >"$work/summary.txt" 2>/dev/null
python3 - "$work/summary.txt" <<'PY'
import re, sys
text = open(sys.argv[1]).read()
m = re.search(r"(\d+) iterations; this process used ([0-9.]+) s of CPU", text)
its, cpu = int(m.group(1)), float(m.group(2))
events = its * 50
print(f"events: {events} in 10 s ({events / 10:.0f}/s); runner CPU {cpu:.2f} s "
      f"({10 * cpu:.1f}% of one core)")
PY
