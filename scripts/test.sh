#!/usr/bin/env bash
# Builds and runs every test: the normal build (warnings are errors), the core and CLI tests
# again under AddressSanitizer and UBSan, and each fuzzer for a short run.
# Usage: scripts/test.sh            (FUZZ_SECONDS=30 by default)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
scripts/install-deps.sh test

export QT_QPA_PLATFORM=offscreen
export CCACHE_BASEDIR="$root"
jobs=$(nproc)

echo "== Compilación normal =="
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVANTELOR_WERROR=ON >/dev/null
cmake --build build -j "$jobs"
(cd build && ctest --output-on-failure -j "$jobs" --timeout 600) | tee build/ctest.log

echo "== AddressSanitizer y UBSan =="
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" \
  -DVANTELOR_SANITIZE=ON -DVANTELOR_WERROR=ON >/dev/null
cmake --build build-asan -j "$jobs"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export LSAN_OPTIONS=suppressions="$root/Tests/lsan.supp"
skip=$(grep -v '^#' Tests/asan-skip.txt 2>/dev/null | paste -sd'|' || true)
(cd build-asan && ctest --output-on-failure -j "$jobs" --timeout 900 ${skip:+-E "$skip"}) | tee build-asan/ctest.log

echo "== Fuzzers =="
scripts/fuzz.sh "${FUZZ_SECONDS:-30}"

# One closing line over both test runs (the fuzzers stop the script on any finding).
total() { sed -nE 's/.*tests passed, ([0-9]+) tests failed out of ([0-9]+).*/\1 \2/p' "$1"; }
read -r failed1 all1 < <(total build/ctest.log)
read -r failed2 all2 < <(total build-asan/ctest.log)
echo "tests: $((all1 + all2 - failed1 - failed2)) passed, $((failed1 + failed2)) failed"
