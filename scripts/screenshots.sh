#!/usr/bin/env bash
# Builds the app and its screenshot driver, writes a demo folder of real photographs (the nature
# wallpapers of Debian's mate-backgrounds, wrapped into NEFs and JPEGs by the test fixture
# writers) and saves a PNG of each main state under Xvfb:
#   scripts/screenshots.sh [OUTPUT]     (default $BUILD/screenshots)
# BUILD names the build folder (default build-screens, a Release build of its own); pass an
# existing one (BUILD=build) to reuse what it has compiled.
# The single-preview screenshot is copied to docs/main-window.png for the README.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

scripts/install-deps.sh test
photos=/usr/share/backgrounds/mate/nature
if [ ! -d "$photos" ]; then
  sudo=()
  [ "$(id -u)" -ne 0 ] && sudo=(sudo)
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends mate-backgrounds
fi

export CCACHE_BASEDIR=$root
build=${BUILD:-build-screens}
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVANTELOR_BUILD_BENCHMARKS=OFF >/dev/null
fi
cmake --build "$build" -j "$(nproc)" --target vantelor vantelor-demo-folder vantelor-screenshots

out=${1:-$build/screenshots}
mkdir -p "$out"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# A sandboxed home: the driver must not touch the user's preferences or preview cache.
export XDG_CONFIG_HOME=$work/config XDG_CACHE_HOME=$work/cache XDG_RUNTIME_DIR=$work/runtime
mkdir -p "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"

"$build"/Tools/Screenshots/vantelor-demo-folder "$work/Sesión junio 2024" "$photos"/*.jpg
xvfb-run -a -s "-screen 0 1600x1000x24" \
  "$build"/Tools/Screenshots/vantelor-screenshots "$work/Sesión junio 2024" "$out"
cp "$out/03-preview.png" docs/main-window.png
echo "Capturas en $out; docs/main-window.png actualizada."
