#!/bin/sh
# Runs a Windows program of the build under wine, headless, in a wine prefix
# of the build folder, with one wineserver kept up across test runs.
# ORBELLE_WINEPREFIX names the prefix folder.
#
# Wine leaves helper processes (services, device host, the server) running
# after the program ends; whatever output they inherit stays open and a
# caller reading it (ctest, a pipe) would wait for them. So the program
# writes into files of its own, which are copied to our output once it ends.
: "${ORBELLE_WINEPREFIX:?}"
export WINEPREFIX="$ORBELLE_WINEPREFIX" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY
wine=${ORBELLE_WINE:-wine}
if [ ! -d "$WINEPREFIX" ]; then
    mkdir -p "$WINEPREFIX"
    "$wine" wineboot -i </dev/null >/dev/null 2>&1
fi
wineserver -p </dev/null >/dev/null 2>&1 || true
out=$(mktemp) && err=$(mktemp) || exit 1
trap 'rm -f "$out" "$err"' EXIT
trap 'exit 130' INT TERM
"$wine" "$@" </dev/null >"$out" 2>"$err"
rc=$?
cat "$out"
cat "$err" >&2
exit $rc
