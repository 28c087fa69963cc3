#!/usr/bin/env bash
# How closely orbelle-run --rate holds its target, and what the runner
# costs, by hand (not in CI): one small two-way call (the demo bank's
# Account balance) at RATE iterations a second (default 5,000) for DURATION
# seconds (default 20) against the demo server on loopback, the server pinned to
# CPU 0 and the runner with its users to CPU 1. Prints the iterations of
# each whole second but the first and last against the target, the drops,
# the response time, and the CPU of the runner's parent, of its users and
# of the server.
#
#   bash bench/load_rate.sh [BUILD_DIR]      (default build/normal)
#   RATE=2000 USERS=4 DURATION=10 bash bench/load_rate.sh
#   PIN=0 bash bench/load_rate.sh           server and users on any CPU
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build/normal}")
rate=${RATE:-5000}
users=${USERS:-8}
seconds=${DURATION:-20}
work=$(mktemp -d)
server_pid=""
trap '[ -n "$server_pid" ] && kill $server_pid 2>/dev/null; rm -rf "$work"' EXIT

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
pin=${PIN:-1}
# "taskset -c CPU", or nothing with PIN=0 (word-split where it is used).
cpu() { if [ "$pin" = 1 ]; then echo "taskset -c $1"; fi; }
OMNIORB_CONFIG=/dev/null $(cpu 0) "$build/bin/bank_server" \
  -ORBendPoint "giop:tcp:127.0.0.1:$port" -iorlist "$work/list" -quiet >"$work/server.log" 2>&1 &
server_pid=$!
for _ in $(seq 100); do grep -q ready "$work/server.log" && break; sleep 0.1; done
ln -s "$PWD/demo/idl" "$work/idl"
cat >"$work/balance.orb" <<'ORB'
bind once acct IDL:Banking/Account:1.0 Account "FILE(list)"
params acct _get_balance
invoke
ORB
ticks() { awk '{print $14 + $15}' "/proc/$server_pid/stat"; }
before=$(ticks)
$(cpu 1) "$build/bin/orbelle-run" -C "$work" --users "$users" --rate "$rate" \
  --duration "$seconds" --csv run balance.orb >"$work/summary.txt" 2>/dev/null
after=$(ticks)
python3 - "$work" "$rate" "$seconds" "$((after - before))" "$(getconf CLK_TCK)" <<'PY'
import csv, re, statistics, sys
work, rate, seconds, server_ticks, hz = sys.argv[1], float(sys.argv[2]), float(sys.argv[3]), int(sys.argv[4]), int(sys.argv[5])
rows = [r for r in csv.DictReader(open(f"{work}/run_history.csv")) if r["name"] == "all requests"]
inner = [int(r["iterations"]) for r in rows[1:-1]]
stats = {r["name"]: r for r in csv.DictReader(open(f"{work}/run_stats.csv"))}
it = stats["iterations"]
summary = open(f"{work}/summary.txt").read()
m = re.search(r"used ([0-9.]+) s of CPU, its users ([0-9.]+) s", summary)
parent, users = float(m.group(1)), float(m.group(2))
mean = statistics.mean(inner)
print(f"target {rate:.0f}/s for {seconds:.0f} s; whole seconds 2..{len(rows) - 1}: "
      f"mean {mean:.1f}/s ({100 * (mean - rate) / rate:+.2f}%), "
      f"lowest {min(inner)}, highest {max(inner)}")
print(f"iterations {it['count']}, dropped {it['dropped']}; service p50 {it['p50_ms']} ms, "
      f"p99 {it['p99_ms']} ms; response p50 {it['response_p50_ms']} ms, p99 {it['response_p99_ms']} ms")
print(f"CPU: runner's parent {parent:.2f} s ({100 * parent / seconds:.1f}% of a core), "
      f"its users {users:.2f} s ({100 * users / seconds:.1f}%), "
      f"server {server_ticks / hz:.2f} s ({100 * server_ticks / hz / seconds:.1f}%)")
PY
