#!/usr/bin/env bash
# The Debian package from end to end, as root on a Debian 12 machine that has
# what test.sh installs: builds the .deb (and the demo bank server, a test
# peer that is no part of the package), runs lintian, installs the package
# with apt, then uses only installed files from a folder outside the
# checkout: every demo script and a load run with orbelle-run from PATH and
# the agent stand-ins of the package, the generator on the demo's IDL,
# a Locust master and worker with orbelle_locust from Python's path, and two
# C hosts built against the package (pkg-config and dlopen; find_package and
# linking). Then it removes the package and checks that nothing of it is
# left, and runs a `cmake --install` into a private prefix.
#
#   bash tests/package/check_package.sh [BUILD_DIR]     (default build/package)
#
# Every check prints "ok - ..." or "FAILED - ..."; the last line is
# "package: N passed, M failed". The machine is left as it was, also when a
# check fails or the run is interrupted: the package is purged, the servers
# stopped, the work folder removed.
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build/package}
logs=$build/check-logs
mkdir -p "$build" && rm -rf "$logs" && mkdir -p "$logs"
work=$(mktemp -d /tmp/orbelle-package.XXXXXX)
# A plain environment, as on a machine where only the package is installed:
# nothing from this checkout or a user's own Python on any path.
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
unset ORBELLE_RUN PYTHONPATH LD_LIBRARY_PATH ZANTH_HOME
export OMNIORB_CONFIG=/dev/null DEBIAN_FRONTEND=noninteractive

passed=0
failed=0
# check NAME COMMAND...: runs the command (in this shell, so that servers it
# starts are stopped at the end; back in the same folder after), its output
# into the log NAME.
check() {
  local name=$1 here=$PWD ok=0; shift
  "$@" >"$logs/$name.log" 2>&1 || ok=$?
  cd "$here" || exit 2
  if [ "$ok" -eq 0 ]; then
    echo "ok - $name"; passed=$((passed + 1))
  else
    echo "FAILED - $name"; tail -25 "$logs/$name.log" | sed 's/^/    /'; failed=$((failed + 1))
  fi
}
finish() {
  echo "package: $passed passed, $failed failed"
  [ "$failed" -eq 0 ]
  exit
}

pids=()
installed_by_us=""
cleaned=""
# Stops the servers, purges the package if it is still installed, removes
# the work folder; once, whichever way the script ends. A signal's trap runs
# inside whatever check was going on, output redirected: what it says goes to
# the script's own output (descriptor 3).
exec 3>&1
clean_up() {
  [ -n "$cleaned" ] && return
  cleaned=1
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done
  wait 2>/dev/null
  if [ -n "$installed_by_us" ] && dpkg -s orbelle >/dev/null 2>&1; then
    echo "== removing the package left installed by an early exit" >&3
    apt-get purge -y -qq -o DPkg::Lock::Timeout=300 orbelle >/dev/null 2>&1 || dpkg --purge orbelle >/dev/null 2>&1
  fi
  rm -rf "$work"
}
trap 'rc=$?; clean_up; exit $rc' EXIT
trap 'clean_up; echo "package: interrupted" >&3; exit 130' INT TERM

if [ "$(id -u)" != 0 ]; then echo "package: needs root (apt-get install)"; failed=1; finish; fi
if dpkg -s orbelle >/dev/null 2>&1; then
  # Someone's own install of the package: not ours to replace or remove.
  echo "package: orbelle is installed already; remove it first"; failed=1; finish
fi

# -- Build the package ------------------------------------------------------
echo "== package: build ($build)"
build_package() {
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
    -DORBELLE_TESTS=OFF -DORBELLE_BENCH=OFF -DORBELLE_INTEROP=ON &&
    cmake --build "$build" -j"$(nproc)" &&
    rm -f "$build"/orbelle_*.deb && (cd "$build" && cpack -G DEB)
}
check build-deb build_package
deb=$(ls "$build"/orbelle_*.deb 2>/dev/null | head -1)
[ -n "$deb" ] || finish

# lintian's verdict, kept for whoever reads the run; errors fail the check.
lintian_has_no_errors() {
  command -v lintian >/dev/null || { echo "lintian is not installed" | tee "$build/lintian.txt"; return 1; }
  lintian "$deb" >"$build/lintian.txt" 2>&1
  cat "$build/lintian.txt"
  ! grep -q '^E:' "$build/lintian.txt"
}
check lintian lintian_has_no_errors
sed 's/^/    lintian: /' "$build/lintian.txt"

# The package's own paths, and which of them the machine had before.
dpkg-deb --fsys-tarfile "$deb" | tar -t | sed -e 's|^\./|/|' -e 's|/$||' | grep -v '^/\?$' \
  >"$work/contents"
while read -r path; do [ -e "$path" ] && echo "$path"; done <"$work/contents" >"$work/existed"

# -- Install ------------------------------------------------------------------
installed_by_us=1
check apt-install apt-get install -y -q -o DPkg::Lock::Timeout=300 "$deb"
dpkg -s orbelle >/dev/null 2>&1 || finish
dpkg -L orbelle >"$work/dpkg-L"
library=$(pkg-config --variable=library orbelle)
zanth=$(pkg-config --variable=zanth_home orbelle)

lists_what_was_built() {
  # Every file of the .deb is what dpkg says it installed, and exists.
  diff <(sort "$work/contents") <(grep -v '^/\.$' "$work/dpkg-L" | sort) &&
    while read -r path; do [ -e "$path" ] || { echo "missing: $path"; return 1; }; done <"$work/contents" &&
    [ "$(command -v orbelle-run)" = /usr/bin/orbelle-run ] &&
    [ -f "$library" ] && [ -f "$zanth/shlib/iiop/brokvane.dll" ] &&
    [ -f /usr/include/orbelle/host.h ] && [ -f /usr/share/doc/orbelle/copyright ]
}
check installed-files lists_what_was_built

# -- The demo from a folder outside the checkout ----------------------------
demo=$work/demo
mkdir -p "$demo/run/ns"
cp -r "$root/demo/scripts" "$root/demo/idl" "$root/demo/locustfile.py" "$demo/"
free_port() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }
# Whether two paths name one file (the loader may reach it through a link
# or by way of bin/../lib).
same_file() { [ -n "$1" ] && [ "$(readlink -f "$1")" = "$(readlink -f "$2")" ]; }
loaded_library() { sed -n 's/.*calling init: \(.*liborbelle\.so[.0-9]*\)$/\1/p' "$1" | head -1; }
wait_for() {  # file text seconds
  for _ in $(seq 1 $(( $3 * 10 ))); do grep -q "$2" "$1" 2>/dev/null && return 0; sleep 0.1; done
  return 1
}
export NS_PORT BANK_PORT AGENT_PORT=14000 BANK_IOR ZANTH_HOME=$zanth ZANTH_AGENT_DIRECTORY=$demo/run/agents.txt
NS_PORT=$(free_port)
BANK_PORT=$(free_port)
start_servers() {
  omniNames -start "$NS_PORT" -always -datadir "$demo/run/ns" -errlog "$demo/run/ns/err.log" \
    -ORBendPoint "giop:tcp:127.0.0.1:$NS_PORT" >/dev/null 2>&1 &
  pids+=($!)
  wait_for "$demo/run/ns/err.log" "IOR:" 10 || return 1
  "$build/bin/bank_server" -ORBendPoint "giop:tcp:127.0.0.1:$BANK_PORT" -ior "$demo/run/bank.ior" \
    -iorlist "$demo/run/bank.iorlist" -register \
    -ORBInitRef "NameService=corbaloc::1.0@127.0.0.1:$NS_PORT/NameService" >"$demo/run/server.log" 2>&1 &
  pids+=($!)
  wait_for "$demo/run/server.log" "bank_server: ready" 10
}
check start-servers start_servers
BANK_IOR=$(cat "$demo/run/bank.ior" 2>/dev/null)
echo "$AGENT_PORT IDL:Banking/Bank:1.0 Bank $BANK_IOR" >"$demo/run/agents.txt"

# Every demo script, each binding alternative included (the agent through
# the package's stand-ins), with the library orbelle-run finds by itself.
demo_scripts() {
  cd "$demo" && LD_DEBUG=files orbelle-run scripts/0[1-5]-*.orb 2>"$work/ld-debug" &&
    # The library the dynamic loader took is the installed one.
    same_file "$(loaded_library "$work/ld-debug")" "$library"
}
check demo-scripts demo_scripts
load_run() {
  cd "$demo" && orbelle-run --users 4 --ramp-up 1 --duration 4 --report run/report.html \
    --csv run/load scripts/06-load.orb &&
    grep -q 'invoke open_account twoway' run/load_stats.csv &&
    grep -q uPlot run/report.html
}
check load-run load_run

# -- The generator: omniidl finds the back-end without -p -----------------
generator() {
  mkdir -p "$work/gen" && cd "$work" && omniidl -b idl2csv -C "$work/gen" "$root/demo/bank.idl" &&
    diff -r "$root/demo/idl" "$work/gen/idl"
}
check generator generator

# -- Locust: a master and a worker, with installed files only --------------
locust_run() {
  cd "$demo" || return 1
  # The module and the runner come from the package.
  python3 -c 'import orbelle_locust as m; print(m.__file__); print(m.find_runner())' >"$work/found" &&
    diff <(printf '%s\n' /usr/lib/python3/dist-packages/orbelle_locust.py /usr/bin/orbelle-run) "$work/found" ||
    return 1
  local port
  port=$(free_port)
  locust -f locustfile.py --master --master-bind-host 127.0.0.1 --master-bind-port "$port" \
    --headless --expect-workers 1 -u 4 -r 4 --run-time 6s --stop-timeout 2 --csv run/locust \
    --only-summary >"$logs/locust-master.txt" 2>&1 &
  local master=$!
  locust -f locustfile.py --worker --master-host 127.0.0.1 --master-port "$port" \
    >"$logs/locust-worker.txt" 2>&1 &
  local worker=$!
  pids+=("$master" "$worker")
  wait "$master"; local status=$?
  wait "$worker"
  cat "$logs/locust-master.txt"
  # Every customer's visit succeeded, and there were some.
  [ "$status" -eq 0 ] &&
    awk -F, '$2 ~ /invoke open_account twoway/ { n = $3; f = $4 } END { exit !(n > 0 && f == 0) }' \
      run/locust_stats.csv
}
check locust locust_run

# -- Two C hosts built against the package -------------------------------
host_pkg_config() {
  # Linked as needed only: the library comes in through dlopen, from the
  # path pkg-config gives.
  cc -Wall -Wextra -Werror -Wl,--as-needed -o "$work/host_dlopen" "$root/tests/package/host_call.c" \
    -DORBELLE_LIBRARY="\"$library\"" $(pkg-config --cflags --libs orbelle) -ldl &&
    ! readelf -d "$work/host_dlopen" | grep -q 'liborbelle' &&
    (cd "$demo" && "$work/host_dlopen" "$BANK_IOR") >"$work/dlopen.out" && cat "$work/dlopen.out" &&
    grep -qx "door in $library" "$work/dlopen.out" &&
    grep -qx '\^_get_name = Harbour Bank' "$work/dlopen.out"
}
check host-pkg-config host_pkg_config
host_find_package() {
  cmake -S "$root/tests/package/find_package" -B "$work/consumer" &&
    cmake --build "$work/consumer" &&
    readelf -d "$work/consumer/host_call" | grep -q 'NEEDED.*\[liborbelle.so.0\]' &&
    [ "$(cat "$work/consumer/zanth_home.txt")" = "$zanth" ] &&
    (cd "$demo" && "$work/consumer/host_call" "$BANK_IOR") >"$work/linked.out" && cat "$work/linked.out" &&
    same_file "$(sed -n 's/^door in //p' "$work/linked.out")" "$library" &&
    grep -qx '\^_get_name = Harbour Bank' "$work/linked.out"
}
check host-find-package host_find_package

# -- Remove: nothing of the package stays -----------------------------------
check apt-purge apt-get purge -y -q -o DPkg::Lock::Timeout=300 orbelle
installed_by_us=""
nothing_left() {
  local left=0
  dpkg -s orbelle >/dev/null 2>&1 && { echo "still installed"; left=1; }
  while read -r path; do
    grep -qxF "$path" "$work/existed" || [ ! -e "$path" ] || { echo "left: $path"; left=1; }
  done <"$work/contents"
  # Byte code Python wrote when the tools ran as root.
  for cache in /usr/lib/python3/dist-packages/__pycache__/orbelle_locust.* \
               /usr/lib/omniidl/omniidl_be/__pycache__/idl2csv.*; do
    [ -e "$cache" ] && { echo "left: $cache"; left=1; }
  done
  return $left
}
check nothing-left nothing_left

# -- cmake --install into a prefix of one's own, the package gone ---------
private_prefix() {
  local prefix=$work/prefix
  cmake --install "$build" --prefix "$prefix" &&
    [ -f "$prefix/lib/x86_64-linux-gnu/liborbelle.so.0" ] &&
    [ -f "$prefix/lib/x86_64-linux-gnu/pkgconfig/orbelle.pc" ] &&
    (cd "$demo" && "$prefix/bin/orbelle-run" scripts/02-accounts.orb) &&
    (cd "$demo" && LD_DEBUG=files "$prefix/bin/orbelle-run" scripts/02-accounts.orb \
       2>"$work/ld-debug-prefix") &&
    same_file "$(loaded_library "$work/ld-debug-prefix")" "$prefix/lib/x86_64-linux-gnu/liborbelle.so.0"
}
check cmake-install-prefix private_prefix

finish
