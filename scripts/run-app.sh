#!/usr/bin/env bash
# Builds Vantelor and starts it, optionally on a folder: scripts/run-app.sh [CARPETA]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh app
export CCACHE_BASEDIR=$(pwd)
cmake -S . -B build-app -G Ninja -DCMAKE_BUILD_TYPE=Release -DVANTELOR_BUILD_TESTS=OFF >/dev/null
cmake --build build-app -j "$(nproc)" --target vantelor vantelor-cli
exec build-app/Sources/VantelorApp/vantelor "$@"
