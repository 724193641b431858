#!/usr/bin/env bash
# Builds everything and runs every test:
#   1. Linux with AddressSanitizer and UndefinedBehaviorSanitizer: all tests;
#   2. the libFuzzer targets (clang), each for a short smoke run;
#   3. the Windows x86_64 DLL and the same tests, run under Wine;
#   4. the Windows i686 DLL, whose build checks the 32-bit record layouts and
#      the argument sizes of the exports.
# Ends with one line "N passed, N failed".
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh" test || exit 1

jobs=$(nproc)
build="$root/build"
passed=0
failed=0

step() { echo; echo "==== $*"; }
count() {  # count NAME COMMAND...: runs a step that is one test
  local name=$1
  shift
  if "$@"; then
    passed=$((passed + 1))
  else
    echo "FAILED: $name"
    failed=$((failed + 1))
  fi
}
ctest_in() {  # ctest_in DIR: runs CTest and adds its counts
  local log
  log=$(mktemp)
  (cd "$1" && ctest --output-on-failure -j"$jobs" 2>&1) | tee "$log"
  local line
  line=$(grep -E '[0-9]+% tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -1)
  if [[ -z "$line" ]]; then
    failed=$((failed + 1))
  else
    local bad total
    bad=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\1/' <<<"$line")
    total=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\2/' <<<"$line")
    passed=$((passed + total - bad))
    failed=$((failed + bad))
  fi
  rm -f "$log"
}
build_in() {  # build_in DIR CMAKE-ARGS...
  local dir=$1
  shift
  cmake -S "$root" -B "$dir" "$@" >"$dir.configure.log" 2>&1 || { cat "$dir.configure.log"; return 1; }
  cmake --build "$dir" -j"$jobs" 2>&1 | grep -E 'error:|warning:|FAILED|stdcall sizes' ; return "${PIPESTATUS[0]}"
}

mkdir -p "$build"

step "Linux, AddressSanitizer + UndefinedBehaviorSanitizer"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
if build_in "$build/linux" -DVELMORA_SANITIZE=ON; then
  ctest_in "$build/linux"
else
  echo "FAILED: Linux build"; failed=$((failed + 1))
fi

step "Fuzz targets (smoke run)"
fuzz_ok=true
build_in "$build/fuzz" -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DVELMORA_SANITIZE=ON -DVELMORA_FUZZ=ON -DVELMORA_TESTS=OFF || fuzz_ok=false
if $fuzz_ok; then
  for target in "$build"/fuzz/fuzz/*_fuzz; do
    name=$(basename "$target")
    corpus="$build/fuzz/corpus/$name"
    mkdir -p "$corpus"
    seeds="$root/fuzz/seeds/$name"
    [[ -d "$seeds" ]] && cp -n "$seeds"/* "$corpus"/ 2>/dev/null
    count "$name" "$target" -max_total_time="${VELMORA_FUZZ_SECONDS:-20}" -rss_limit_mb=2048 "$corpus" \
      >"$build/fuzz/$name.log" 2>&1 || tail -30 "$build/fuzz/$name.log"
  done
else
  echo "FAILED: fuzz build"; failed=$((failed + 1))
fi

step "Windows x86_64 under Wine"
export WINEPREFIX="$build/wineprefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
if [[ ! -f "$WINEPREFIX/system.reg" ]]; then
  timeout 300 wineboot -i >/dev/null 2>&1 || true
fi
if build_in "$build/win64" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake"; then
  ctest_in "$build/win64"
else
  echo "FAILED: Windows x86_64 build"; failed=$((failed + 1))
fi

step "Windows i686: record layouts and argument sizes"
count "i686 build" build_in "$build/win32" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-i686.cmake"

echo
echo "$passed passed, $failed failed"
((failed == 0))
