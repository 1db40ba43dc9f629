#!/usr/bin/env bash
# Builds the libFuzzer targets with clang-14 and runs each for the given number of seconds
# (default 30), starting from the seeds that Fuzz/seeds/<name>/ holds, if any, after replaying
# the inputs kept under Fuzz/regressions/<name>-*.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
seconds=${1:-30}
export CCACHE_BASEDIR="$root"
cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVANTELOR_FUZZ=ON \
  -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 >/dev/null
cmake --build build-fuzz -j "$(nproc)"
shopt -s nullglob
for fuzzer in build-fuzz/Fuzz/fuzz-*; do
  [ -f "$fuzzer" ] && [ -x "$fuzzer" ] || continue
  name=${fuzzer##*/fuzz-}
  corpus="build-fuzz/corpus-$name"
  mkdir -p "$corpus"
  seeds=()
  [ -d "Fuzz/seeds/$name" ] && seeds=("Fuzz/seeds/$name")
  echo "-- fuzz-$name: ${seconds} s"
  log="build-fuzz/fuzz-$name.log"
  status=0
  # Inputs that once broke this fuzzer run first, each on its own, under the same limits.
  regressions=(Fuzz/regressions/"$name"-*)
  if [ ${#regressions[@]} -gt 0 ] && ! "$fuzzer" -rss_limit_mb=2048 -timeout=60 "${regressions[@]}" >"$log" 2>&1; then
    tail -n 60 "$log"
    echo "fuzz-$name falla con una entrada de Fuzz/regressions"
    exit 1
  fi
  "$fuzzer" -max_total_time="$seconds" -print_final_stats=1 -rss_limit_mb=2048 "$corpus" "${seeds[@]}" >"$log" 2>&1 || status=$?
  grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|SUMMARY)' "$log" || true
  if [ "$status" -ne 0 ]; then
    tail -n 60 "$log"
    echo "fuzz-$name encontró un fallo"
    exit 1
  fi
done
