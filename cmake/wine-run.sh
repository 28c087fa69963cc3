#!/bin/sh
# Runs a Windows program of the build under wine, headless, in a wine prefix
# of the build folder, with one wineserver kept up across test runs.
# ORBELLE_WINEPREFIX names the prefix folder.
: "${ORBELLE_WINEPREFIX:?}"
export WINEPREFIX="$ORBELLE_WINEPREFIX" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY
if [ ! -d "$WINEPREFIX" ]; then
    mkdir -p "$WINEPREFIX"
    "${ORBELLE_WINE:-wine}" wineboot -i >/dev/null 2>&1
fi
# The server outlives this program: it must not hold the caller's output
# open (ctest would wait for it), so it is started here on /dev/null.
wineserver -p </dev/null >/dev/null 2>&1 || true
exec "${ORBELLE_WINE:-wine}" "$@"
