#!/usr/bin/env bash
# Opens a load report of orbelle-run in headless Chromium and fails when the
# page writes anything to its console (the report itself logs nothing, so
# that is an error or an uncaught exception) or when one of its charts
# was not drawn. The page's script records on each chart's figure how many
# pixels of the chart's colours its canvas holds; a report of a run without
# a whole second says so and has no charts to check.
#
#   tests/browser/check_report.sh REPORT.html [SCREENSHOT.png]
#
# Exits 0 when the report is fine, 1 when it is not (the reason on standard
# error), 2 when used wrongly, 77 when chromium is not installed.
# CHROMIUM names another browser binary.
set -uo pipefail

# A single second draws one point per series, about 50 pixels; an empty
# chart draws none of its colours.
min_pixels=10
# A chromium that neither loads nor ends in this time has failed.
time_limit=90
# Screenshots are as tall as the page, up to this many pixels.
max_height=12000
charts=(throughput failures latency users rate name spectrum)

if [ $# -lt 1 ] || [ $# -gt 2 ]; then
  echo "usage: $0 REPORT.html [SCREENSHOT.png]" >&2
  exit 2
fi
report=$1
screenshot=${2:-}
if [ ! -f "$report" ]; then
  echo "check_report: no such file: $report" >&2
  exit 2
fi
chromium=${CHROMIUM:-chromium}
if ! command -v "$chromium" >/dev/null; then
  echo "check_report: skipped: $chromium is not installed (apt-get install chromium)"
  exit 77
fi

# An absolute path; chromium runs in no particular folder.
absolute() { echo "$(cd "$(dirname "$1")" && pwd)/$(basename "$1")"; }

# The file:// address of a path, its bytes outside the unreserved set
# percent-encoded.
file_url() {
  local path=$1 url="file://" i c
  local LC_ALL=C
  for ((i = 0; i < ${#path}; i++)); do
    c=${path:i:1}
    case $c in
      [A-Za-z0-9/._~-]) url+=$c ;;
      *) url+=$(printf '%%%02X' "'$c") ;;
    esac
  done
  echo "$url"
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
url=$(file_url "$(absolute "$report")")

flags=(--headless --disable-gpu --no-first-run --no-default-browser-check --hide-scrollbars
       --user-data-dir="$work/profile" --window-size=1280,1600 --virtual-time-budget=5000)
# Chromium's sandbox refuses to run as root.
[ "$(id -u)" = 0 ] && flags+=(--no-sandbox)

timeout -k 5 "$time_limit" "$chromium" "${flags[@]}" --enable-logging=stderr --v=0 \
  --dump-dom "$url" >"$work/dom.html" 2>"$work/log"
status=$?
if [ $status -ne 0 ]; then
  echo "check_report: chromium failed (status $status) on $report:" >&2
  tail -5 "$work/log" >&2
  exit 1
fi

failed=0
fail() {
  echo "check_report: $report: $*" >&2
  failed=1
}

# Console lines look like: [...:INFO:CONSOLE:12] "Uncaught ...", source: file:///... (12)
if grep -E ':CONSOLE[:(]' "$work/log" >"$work/console"; then
  fail "the page wrote to its console:"
  sed -E 's/^\[[^]]*\] //' "$work/console" | head -20 >&2
fi

seconds=$(grep -o '<section id="charts" data-seconds="[0-9]*"' "$work/dom.html" | grep -o '[0-9]*"$' |
  tr -d '"')
drawn=""
if [ -z "$seconds" ]; then
  fail "no charts section: not a load report, or the page did not load"
elif [ "$seconds" -gt 0 ]; then
  for chart in "${charts[@]}"; do
    figure=$(grep -o "<figure id=\"chart-$chart\"[^>]*>" "$work/dom.html")
    pixels=$(grep -o 'data-drawn="[0-9]*"' <<<"$figure" | grep -o '[0-9]*')
    if [ -z "$figure" ]; then
      fail "chart $chart is missing"
    elif [ -z "$pixels" ]; then
      fail "chart $chart was not drawn"
    elif [ "$pixels" -lt $min_pixels ]; then
      fail "chart $chart is empty ($pixels pixels of its colours, at least $min_pixels expected)"
    fi
    drawn+=" $chart=${pixels:-none}"
  done
fi

if [ -n "$screenshot" ]; then
  height=$(grep -o '^<html[^>]*data-height="[0-9]*"' "$work/dom.html" | grep -o '[0-9]*"$' | tr -d '"')
  height=${height:-1600}
  [ "$height" -gt $max_height ] && height=$max_height
  shot=$(absolute "$screenshot")
  flags=("${flags[@]/--window-size=1280,1600/--window-size=1280,$height}")
  if ! timeout -k 5 "$time_limit" "$chromium" "${flags[@]}" --screenshot="$shot" "$url" \
      >/dev/null 2>"$work/shot.log" || [ ! -s "$shot" ]; then
    fail "no screenshot written to $screenshot"
    tail -5 "$work/shot.log" >&2
  fi
fi

[ $failed -ne 0 ] && exit 1
if [ "${seconds:-0}" -gt 0 ]; then
  echo "check_report: $report: fine; chart pixels:$drawn"
else
  echo "check_report: $report: fine; the run has no whole second to chart"
fi
exit 0
