#!/usr/bin/env bash
# Runs every Orbelle test: installs what is missing (Debian 12, as root),
# then builds and tests the configurations — the normal 64-bit build, the
# 64-bit build under AddressSanitizer and UBSan, the 32-bit build of the
# library and its unit tests (natively, or under qemu-i386 where the kernel
# starts no 32-bit programs), and the Windows builds (mingw-w64: the 64-bit
# unit tests and the demo's runner under wine, the 32-bit DLL built) — and
# runs each fuzz target for a short while.
#
#   bash test.sh            everything
#   ORBELLE_CONFIGS="normal" bash test.sh   only the named configurations
#   FUZZ_SECONDS=0 bash test.sh             skip the fuzz runs
#   ORBELLE_M32_RUN=native|qemu bash test.sh
#                           run the 32-bit tests that way, whatever the machine
set -uo pipefail
cd "$(dirname "$0")"
root=$(pwd)

packages=(cmake make g++ pkg-config googletest libgtest-dev libgmock-dev libbenchmark-dev
          gcc-multilib g++-multilib clang libclang-rt-14-dev
          libomniorb4-dev omniidl omniorb omniorb-nameserver tshark tcl-combat
          mingw-w64 wine64 chromium python3-locust qemu-user lintian dpkg-dev file prometheus
          libpcap-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" = 0 ]; then
    echo "== installing: ${missing[*]}"
    # tshark asks whether non-root users may capture; answer no, without a prompt.
    echo "wireshark-common wireshark-common/install-setuid boolean false" | debconf-set-selections
    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
  else
    echo "== missing packages (run as root to install): ${missing[*]}" >&2
  fi
fi

jobs=$(nproc 2>/dev/null || echo 2)
configs=${ORBELLE_CONFIGS:-"normal sanitize m32 windows package"}
fuzz_seconds=${FUZZ_SECONDS:-12}
passed=0
failed=0
broken=()

run_config() {
  local name=$1; shift
  local dir="$root/build/$name"
  echo "== $name: configure and build"
  if ! cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >"$dir.configure.log" 2>&1; then
    cat "$dir.configure.log"; broken+=("$name (configure)"); return
  fi
  if ! cmake --build "$dir" -j"$jobs" >"$dir.build.log" 2>&1; then
    grep -E -A5 'error|Error' "$dir.build.log" | head -60; broken+=("$name (build)"); return
  fi
  echo "== $name: tests"
  local log="$dir.ctest.log"
  ctest --test-dir "$dir" -j"$jobs" --output-on-failure --timeout 300 2>&1 | tee "$log" | \
    grep -E -v '^\s+Start |Passed|^$' || true
  local line
  line=$(grep -E '[0-9]+% tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -1)
  if [ -z "$line" ]; then broken+=("$name (no test summary)"); return; fi
  local total bad
  total=$(sed -E 's/.*out of ([0-9]+).*/\1/' <<<"$line")
  bad=$(sed -E 's/.* ([0-9]+) tests failed.*/\1/' <<<"$line")
  # Under an emulator (wine) a test process now and then dies before its
  # first line; such tests get one more run, and the first failure stays
  # above in the log for whoever reads it.
  if [ "$bad" -gt 0 ] && [ -n "${retry_once:-}" ]; then
    echo "== $name: $bad failed; running them once more"
    ctest --test-dir "$dir" --rerun-failed --output-on-failure --timeout 300 >"$dir.rerun.log" 2>&1
    line=$(grep -E '[0-9]+% tests passed, [0-9]+ tests failed out of [0-9]+' "$dir.rerun.log" | tail -1)
    local again
    again=$(sed -E 's/.* ([0-9]+) tests failed.*/\1/' <<<"$line")
    if [ -n "$line" ] && [ "$again" -lt "$bad" ]; then
      echo "== $name: $((bad - again)) passed when run again"
      bad=$again
    fi
    [ "$bad" -gt 0 ] && cat "$dir.rerun.log"
  fi
  passed=$((passed + total - bad))
  failed=$((failed + bad))
}

# Windows: the 64-bit build's unit tests run under wine, and so does its
# orbelle-run.exe through the demo against the Linux servers; the 32-bit DLLs
# are built (their record offsets are asserted while compiling), not run.
run_windows() {
  if ! command -v x86_64-w64-mingw32-g++-posix >/dev/null || ! { command -v wine64 >/dev/null ||
       [ -x /usr/lib/wine/wine64 ]; }; then
    echo "== windows: skipped (mingw-w64 or wine64 is not installed)"; return
  fi
  # The wine prefix is made once, before anything runs in it.
  ORBELLE_WINEPREFIX="$root/build/windows/wineprefix" ORBELLE_WINE="$(command -v wine64 ||
    echo /usr/lib/wine/wine64)" "$root/cmake/wine-run.sh" cmd /c exit >/dev/null 2>&1 || true
  retry_once=1 run_config windows -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw64.cmake" -DORBELLE_BENCH=OFF
  local dir="$root/build/windows"
  if [ -x "$dir/bin/orbelle-run.exe" ]; then
    echo "== windows: the demo with orbelle-run.exe under wine"
    if ORBELLE_WINEPREFIX="$dir/wineprefix" ORBELLE_ZANTH="$dir/zanth" \
       ORBELLE_RUNNER="$root/cmake/wine-run.sh $dir/bin/orbelle-run.exe" \
       bash "$root/demo.sh" >"$dir.demo.log" 2>&1; then
      passed=$((passed + 1))
    else
      tail -40 "$dir.demo.log"; failed=$((failed + 1)); broken+=("windows demo")
    fi
  fi
  # No wine server stays behind.
  WINEPREFIX="$dir/wineprefix" wineserver -k >/dev/null 2>&1 || true
  local dir32="$root/build/windows32"
  echo "== windows32: configure and build the DLLs"
  if ! { cmake -S "$root" -B "$dir32" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
           -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw32.cmake" -DORBELLE_TESTS=OFF \
           -DORBELLE_BENCH=OFF >"$dir32.configure.log" 2>&1 &&
         cmake --build "$dir32" -j"$jobs" --target orbelle harnix tellcat >"$dir32.build.log" 2>&1; }; then
    tail -30 "$dir32.configure.log" "$dir32.build.log"; broken+=("windows32 (build)")
  else
    passed=$((passed + 1))
  fi
}

# 32-bit: the tests run natively where the kernel starts i386 programs and
# under qemu-i386 where it does not. The build's first program, start_probe,
# decides; with the emulator, ctest starts every test through it and the
# tests start the 32-bit orbelle-run through it too (no binfmt handler is
# needed). Never skipped: a machine that can do neither fails the run.
run_m32() {
  local dir="$root/build/m32" how=${ORBELLE_M32_RUN:-auto} why native_error
  local toolchain=(-DCMAKE_TOOLCHAIN_FILE="$root/cmake/m32.cmake" -DORBELLE_BENCH=OFF)
  echo "== m32: configure and build the start probe"
  if ! { cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "${toolchain[@]}" \
           -DCMAKE_CROSSCOMPILING_EMULATOR= >"$dir.configure.log" 2>&1 &&
         cmake --build "$dir" --target start_probe >>"$dir.configure.log" 2>&1; }; then
    tail -30 "$dir.configure.log"; broken+=("m32 (configure)"); return
  fi
  local probe="$dir/bin/start_probe" qemu
  qemu=$(command -v qemu-i386 || true)
  native_error=$( ("$probe") 2>&1 >/dev/null) && native_error=""
  case $how in
    auto)
      if [ -z "$native_error" ]; then
        how=native; why="this machine starts 32-bit programs"
      else
        how=qemu; why="this machine starts no 32-bit programs (${native_error##*: })"
      fi ;;
    native|qemu) why="ORBELLE_M32_RUN=$how" ;;
    *) echo "== m32: ORBELLE_M32_RUN is native or qemu, not '$how'"; broken+=("m32 (ORBELLE_M32_RUN)")
       return ;;
  esac
  if [ "$how" = native ] && [ -n "$native_error" ]; then
    echo "== m32: cannot run the 32-bit tests natively: $native_error"
    broken+=("m32 (32-bit programs do not start here)"); return
  fi
  if [ "$how" = qemu ] && { [ -z "$qemu" ] || ! "$qemu" "$probe" >/dev/null 2>&1; }; then
    echo "== m32: cannot run the 32-bit tests: ${native_error:-natively not tried}," \
         "and qemu-i386 ${qemu:+cannot start them either}${qemu:-is not installed (Debian qemu-user)}"
    broken+=("m32 (32-bit programs start neither natively nor under qemu-i386)"); return
  fi
  local way="natively"
  [ "$how" = qemu ] && way="under $qemu"
  echo "== m32: the 32-bit tests run $way: $why"
  if [ "$how" = qemu ]; then
    run_config m32 "${toolchain[@]}" -DCMAKE_CROSSCOMPILING_EMULATOR="$qemu"
  else
    run_config m32 "${toolchain[@]}" -DCMAKE_CROSSCOMPILING_EMULATOR=
  fi
}

# The Debian package from end to end (tests/package/check_package.sh, as
# root: it installs the package machine-wide and removes it again): its
# checks count like tests; a run without its closing count line is broken.
run_package() {
  local dir="$root/build/package"
  echo "== package: build, lintian, install, use, remove"
  bash "$root/tests/package/check_package.sh" "$dir" 2>&1 | tee "$dir.log" | grep -v '^    lintian: N:'
  local line
  line=$(grep -E '^package: [0-9]+ passed, [0-9]+ failed$' "$dir.log" | tail -1)
  if [ -z "$line" ]; then broken+=("package (no result line)"); return; fi
  passed=$((passed + $(sed -E 's/^package: ([0-9]+) passed.*/\1/' <<<"$line")))
  failed=$((failed + $(sed -E 's/.* ([0-9]+) failed$/\1/' <<<"$line")))
}

mkdir -p "$root/build"
for c in $configs; do
  case $c in
    normal)   run_config normal ;;
    sanitize) ASAN_OPTIONS=detect_leaks=1 run_config sanitize -DORBELLE_SANITIZE=ON -DORBELLE_BENCH=OFF ;;
    m32)      run_m32 ;;
    windows)  run_windows ;;
    package)  run_package ;;
    *) echo "unknown configuration $c" >&2; broken+=("$c") ;;
  esac
done

# Fuzz targets: a bounded run of each over its seed corpus.
if [ "$fuzz_seconds" -gt 0 ] && command -v clang++ >/dev/null && ls fuzz/*_fuzz.cpp >/dev/null 2>&1; then
  dir="$root/build/fuzz"
  echo "== fuzz: build"
  if CC=clang CXX=clang++ cmake -S "$root" -B "$dir" -DORBELLE_FUZZ=ON >"$dir.configure.log" 2>&1 &&
     cmake --build "$dir" -j"$jobs" >"$dir.build.log" 2>&1; then
    for src in fuzz/*_fuzz.cpp; do
      name=$(basename "$src" .cpp)
      work="$dir/corpus-run/$name"
      mkdir -p "$work"
      if [ ! -d "fuzz/corpus/$name" ]; then
        echo "== fuzz: $name has no seed folder fuzz/corpus/$name"
        failed=$((failed + 1)); broken+=("fuzz $name (no seeds)"); continue
      fi
      echo "== fuzz: $name for ${fuzz_seconds}s"
      if "$dir/bin/$name" -max_total_time="$fuzz_seconds" -print_final_stats=0 \
           -artifact_prefix="$dir/" "$work" "fuzz/corpus/$name" >"$dir/$name.log" 2>&1; then
        passed=$((passed + 1))
      else
        tail -40 "$dir/$name.log"; failed=$((failed + 1)); broken+=("fuzz $name")
      fi
    done
  else
    tail -40 "$dir.build.log"; broken+=("fuzz (build)")
  fi
fi

if [ ${#broken[@]} -gt 0 ]; then
  echo "== broken: ${broken[*]}"
  failed=$((failed + ${#broken[@]}))
fi
echo "total: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
