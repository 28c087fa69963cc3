#!/usr/bin/env bash
# The Orbelle demo: installs what is missing (Debian 12, as root), builds,
# starts a naming service and the demo bank server on loopback ports, runs
# the scripts in demo/scripts with orbelle-run, and stops the servers.
#
#   bash demo.sh                    all demo scripts
#   bash demo.sh --trace 5          the same, with the library's trace
#   bash demo.sh 04-deferred.orb    one script (any orbelle-run options too)
#   bash demo.sh --load             06-load.orb with 8 users for 20 seconds; the
#                                   report goes to demo/run/report.html
#
# ORBELLE_RUNNER names another runner command (test.sh runs the Windows
# build's orbelle-run.exe under wine this way), ORBELLE_ZANTH the folder of
# agent libraries it loads.
set -uo pipefail
cd "$(dirname "$0")"
root=$(pwd)

packages=(cmake make g++ pkg-config python3 libomniorb4-dev omniidl omniorb omniorb-nameserver)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" != 0 ]; then
    echo "demo: missing packages (run as root to install them): ${missing[*]}" >&2; exit 1
  fi
  echo "== installing ${missing[*]}"
  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
fi

# Every exit, early or not, ends with one plain line saying how it went.
closing() {
  local rc=$?
  if [ "$rc" -eq 0 ]; then echo "demo: passed"; else echo "demo: FAILED (exit status $rc)"; fi
}
trap closing EXIT
build="$root/build/demo"
mkdir -p "$build"
echo "== building Orbelle and the demo bank server"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORBELLE_TESTS=OFF \
      -DORBELLE_BENCH=OFF -DORBELLE_INTEROP=ON >"$build.configure.log" 2>&1 ||
  { cat "$build.configure.log"; exit 1; }
cmake --build "$build" -j"$(nproc)" >"$build.build.log" 2>&1 ||
  { grep -E -A5 'error' "$build.build.log" | head -40; exit 1; }

run="$root/demo/run"
rm -rf "$run" && mkdir -p "$run/ns"
free_port() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }
wait_for() {  # file text seconds
  for _ in $(seq 1 $(( $3 * 10 ))); do grep -q "$2" "$1" 2>/dev/null && return 0; sleep 0.1; done
  return 1
}
pids=()
cleanup() { local rc=$?; for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done; wait 2>/dev/null; (exit $rc); closing; }
trap cleanup EXIT

export NS_PORT BANK_PORT AGENT_PORT=14000
NS_PORT=$(free_port)
BANK_PORT=$(free_port)
echo "== starting omniNames on 127.0.0.1:$NS_PORT"
OMNIORB_CONFIG=/dev/null omniNames -start "$NS_PORT" -always -datadir "$run/ns" \
  -errlog "$run/ns/err.log" -ORBendPoint "giop:tcp:127.0.0.1:$NS_PORT" \
  -ORBmaxGIOPVersion 1.0 >/dev/null 2>&1 &
pids+=($!)
wait_for "$run/ns/err.log" "IOR:" 10 || { echo "demo: omniNames did not start"; cat "$run/ns/err.log"; exit 1; }

echo "== starting the bank server on 127.0.0.1:$BANK_PORT"
OMNIORB_CONFIG=/dev/null "$build/bin/bank_server" -ORBendPoint "giop:tcp:127.0.0.1:$BANK_PORT" \
  -ior "$run/bank.ior" -iorlist "$run/bank.iorlist" -register \
  -ORBInitRef "NameService=corbaloc::1.0@127.0.0.1:$NS_PORT/NameService" >"$run/server.log" 2>&1 &
pids+=($!)
wait_for "$run/server.log" "bank_server: ready" 10 || { echo "demo: the server did not start"; cat "$run/server.log"; exit 1; }
export BANK_IOR
BANK_IOR=$(cat "$run/bank.ior")

# The agent stand-in answers from a plain directory of references.
export ZANTH_HOME="${ORBELLE_ZANTH:-$build/zanth}" ZANTH_AGENT_DIRECTORY="$run/agents.txt"
echo "$AGENT_PORT IDL:Banking/Bank:1.0 Bank $BANK_IOR" >"$run/agents.txt"

args=()
scripts=()
for a in "$@"; do
  case $a in
    --load)
      scripts+=("scripts/06-load.orb")
      args+=(--users 8 --ramp-up 2 --duration 20 --report run/report.html --csv run/load) ;;
    *.orb) scripts+=("scripts/$(basename "$a")") ;;
    *) args+=("$a") ;;
  esac
done
if [ ${#scripts[@]} -eq 0 ]; then
  for s in "$root"/demo/scripts/*.orb; do scripts+=("scripts/$(basename "$s")"); done
fi
echo "== running ${scripts[*]}"
read -r -a runner <<<"${ORBELLE_RUNNER:-$build/bin/orbelle-run}"
"${runner[@]}" -C "$root/demo" "${args[@]}" "${scripts[@]}"
status=$?
echo "== done (exit status $status); stopping the servers"
exit $status
