#!/usr/bin/env bash
# The load summary's percentiles against exact ones, by hand (not in CI): a
# run of USERS users (default 4) for SECONDS seconds (default 10) of the
# load demo script against the demo bank server on loopback, with every
# event kept; for each row of the CSV, p50/p90/p95/p99 are compared with the
# nearest-rank percentiles of that name's raw latencies.
#
#   bash bench/load_percentiles.sh [BUILD_DIR]      (default build/normal)
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build/normal}")
work=$(mktemp -d)
server_pid=""
trap '[ -n "$server_pid" ] && kill $server_pid 2>/dev/null; rm -rf "$work"' EXIT
mkdir -p "$work/run"
cp -r demo/idl demo/scripts "$work/"
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
OMNIORB_CONFIG=/dev/null "$build/bin/bank_server" -ORBendPoint "giop:tcp:127.0.0.1:$port" \
  -iorlist "$work/run/bank.iorlist" -quiet >"$work/server.log" 2>&1 &
server_pid=$!
for _ in $(seq 100); do grep -q ready "$work/server.log" && break; sleep 0.1; done
"$build/bin/orbelle-run" -C "$work" --users "${USERS:-4}" --duration "${SECONDS_RUN:-10}" \
  --no-think --events events.jsonl --csv run/load scripts/06-load.orb >/dev/null 2>&1 || true
python3 - "$work/events.jsonl" "$work/run/load_stats.csv" <<'PY'
import csv, json, math, sys
raw = {}
for line in open(sys.argv[1]):
    e = json.loads(line)
    if e["kind"] in ("call", "transaction"):
        raw.setdefault(e["name"], []).append(round(e["ms"] * 1000))
        if e["kind"] == "call" and e["name"].startswith("invoke "):
            raw.setdefault("all requests", []).append(round(e["ms"] * 1000))
worst = 0.0
for row in csv.DictReader(open(sys.argv[2])):
    values = sorted(raw.get(row["name"], []))
    if not values or not row["p50_ms"]:
        continue
    assert len(values) == int(row["count"]), row["name"]
    for p in (50, 90, 95, 99):
        exact = values[max(1, math.ceil(p / 100 * len(values))) - 1]
        got = float(row[f"p{p}_ms"]) * 1000
        off = abs(got - exact) / max(exact, 1)
        worst = max(worst, off)
print(f"{sum(len(v) for k, v in raw.items() if k != 'all requests')} timed events; "
      f"largest difference from the exact percentile: {100 * worst:.2f}%")
PY
