#!/usr/bin/env bash
# Load mode at scale, by hand (not in CI): USERS users (default 500) that
# each call echo_long and think one second, against the demo bank server on
# loopback. Prints whether all started within the ramp-up, the run's calls/s
# against what users and think time imply, the memory each user costs
# (proportional set size), the parent's CPU, and how long Ctrl-C takes to
# stop every user.
#
#   bash bench/load_scale.sh [BUILD_DIR]      (default build/normal)
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build/normal}")
users=${USERS:-500}
ramp=${RAMP:-10}
steady=${STEADY:-20}
work=$(mktemp -d)
server_pid=""
trap '[ -n "$server_pid" ] && kill $server_pid 2>/dev/null; rm -rf "$work"' EXIT
ulimit -n 65536 2>/dev/null || true

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
OMNIORB_CONFIG=/dev/null "$build/bin/bank_server" -ORBendPoint "giop:tcp:127.0.0.1:$port" \
  -ORBmaxGIOPVersion 1.0 -iorlist "$work/list" -quiet >"$work/server.log" 2>&1 &
server_pid=$!
for _ in $(seq 100); do grep -q ready "$work/server.log" && break; sleep 0.1; done
ln -s "$PWD/demo/idl" "$work/idl"
cat >"$work/think.orb" <<'ORB'
bind diag IDL:Banking/Diagnostics:1.0 Diagnostics "FILE(list)"
params diag echo_long
set a ${ITERATION}
set c ${VU}
invoke
think 1000
ORB

echo "== $users users, ramp-up ${ramp} s, then ${steady} s of steady load"
"$build/bin/orbelle-run" -C "$work" --users "$users" --ramp-up "$ramp" --duration 3600 \
  --csv "$work/scale" think.orb >"$work/summary.txt" 2>"$work/progress.txt" &
runner=$!
sleep "$ramp"
sleep 1
started=$(pgrep -c -P "$runner" || true)
sleep $((steady / 2))
pss=0
for p in $(pgrep -P "$runner"); do
  kb=$(awk '/^Pss:/ {print $2}' "/proc/$p/smaps_rollup" 2>/dev/null || echo 0)
  pss=$((pss + kb))
done
sleep $((steady - steady / 2))
# The parent's CPU over the whole run so far, in clock ticks.
ticks=$(awk '{print $14 + $15}' "/proc/$runner/stat")
elapsed=$(awk -v start="$(awk '{print $22}' "/proc/$runner/stat")" -v hz="$(getconf CLK_TCK)" \
  '{print $1 - start / hz}' /proc/uptime)
t0=$(date +%s.%N)
kill -INT "$runner"
wait "$runner" || true
t1=$(date +%s.%N)
left=$(pgrep -c -f "orbelle-run -C $work" || true)

python3 - "$work/scale_history.csv" "$users" "$ramp" "$steady" <<'PY'
import csv, sys
path, users, ramp, steady = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4])
rows = [r for r in csv.DictReader(open(path)) if r["name"] == "all requests"]
window = [r for r in rows if ramp + 1 <= int(r["second"]) < ramp + steady]
rate = sum(int(r["count"]) for r in window) / max(len(window), 1)
p50 = sorted(float(r["p50_ms"]) for r in window)[len(window) // 2] if window else 0
implied = users / (1 + p50 / 1000)
print(f"steady calls/s {rate:.1f}, implied by {users} users thinking 1 s: {implied:.1f}"
      f" ({100 * rate / implied:.1f}%)")
PY
echo "users running after the ramp-up: $started of $users"
echo "memory per user (PSS): $((pss / (started > 0 ? started : 1))) KB"
python3 -c "import sys; t, e = int(sys.argv[1]) / $(getconf CLK_TCK), float(sys.argv[2]); print(f'parent CPU: {t:.2f} s in {e:.1f} s ({100 * t / e:.1f}% of one core)')" "$ticks" "$elapsed"
python3 -c "print(f'Ctrl-C to the last user gone: {$t1 - $t0:.2f} s')"
echo "runner processes left: $left"
tail -3 "$work/summary.txt"
