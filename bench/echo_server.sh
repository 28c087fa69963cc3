# Sourced by the benchmarks that call the echo server: starts it on a free
# loopback port pinned to $cpu, with its description in $work/idl, sets
# $ior, and stops it and removes $work when the script exits. Needs root,
# build, work and cpu set.
server_pid=
cleanup() {
    if [ -n "$server_pid" ]; then kill "$server_pid" 2>/dev/null || true; wait "$server_pid" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap cleanup EXIT

mkdir -p "$work/idl"
cp "$root/tests/data/idl/EchoTest-Echo.csv" "$work/idl/"
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
taskset -c "$cpu" "$build/bin/echo_server" -ORBendPoint "giop:tcp:127.0.0.1:$port" \
    -ORBmaxGIOPVersion 1.0 >"$work/server.out" 2>&1 &
server_pid=$!
ior=
for _ in $(seq 100); do
    ior=$(sed -n 's/^ECHO //p' "$work/server.out")
    [ -n "$ior" ] && break
    sleep 0.1
done
[ -n "$ior" ] || { echo "$(basename "$0"): the echo server did not start" >&2; exit 1; }
