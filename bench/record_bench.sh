#!/usr/bin/env bash
# orbelle-record against tshark on the same capture, by hand (not in CI):
# a capture of MESSAGES GIOP messages (default 200,000: deposit calls and
# their replies) read by `orbelle-record` into a script and by
# `tshark -r CAPTURE -Y giop` (Wireshark's GIOP dissector) into its packet
# list, each timed, with its peak memory; then orbelle-record alone on
# BIG messages (default 1,000,000), whose memory must stay that of the
# small run.
#
#   bash bench/record_bench.sh [BUILD_DIR]      (default build/normal)
#   MESSAGES=20000 BIG=0 bash bench/record_bench.sh
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build/normal}")
messages=${MESSAGES:-200000}
big=${BIG:-1000000}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Runs a command; prints its wall time in seconds and peak memory in MB.
measure() {
  python3 - "$@" <<'PY'
import resource, subprocess, sys, time
start = time.monotonic()
subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
wall = time.monotonic() - start
peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss / 1024
print(f"{wall:8.2f} s  {peak:8.1f} MB")
PY
}

record() { measure "$build/bin/orbelle-record" -C demo --object acct=IDL:Banking/Account:1.0 \
  -o "$work/out.orb" "$1"; }

python3 bench/make_capture.py $((messages / 2)) "$work/small.pcap"
echo "capture of $messages GIOP messages ($(du -h "$work/small.pcap" | cut -f1))"
printf '  %-34s %s\n' "orbelle-record" "$(record "$work/small.pcap")"
printf '  %-34s %s\n' "tshark -r CAPTURE -Y giop" "$(measure tshark -r "$work/small.pcap" -Y giop)"
if [ "$big" -gt 0 ]; then
  python3 bench/make_capture.py $((big / 2)) "$work/big.pcap"
  echo "capture of $big GIOP messages ($(du -h "$work/big.pcap" | cut -f1))"
  printf '  %-34s %s\n' "orbelle-record" "$(record "$work/big.pcap")"
fi
