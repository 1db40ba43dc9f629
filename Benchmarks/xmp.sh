#!/usr/bin/env bash
# Whole commands against exiv2 in the same run: reading the rating of 1,000 NEFs with 5 KB
# sidecars, warm cache. Build first (cmake --build build); needs hyperfine and exiv2.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD:-build}
folder=$(mktemp -d /tmp/bench-xmp-sh-XXXXXX)
trap 'rm -rf "$folder"' EXIT
"$build/Benchmarks/bench-xmp" --prepare "$folder"
export QT_QPA_PLATFORM=offscreen
hyperfine --warmup 2 --runs 10 -N --style basic \
  --command-name "vantelor-cli xmp read --json (1,000 NEF)" \
  "$build/Sources/VantelorCLI/vantelor-cli xmp read --json $(echo "$folder"/*.NEF)" \
  --command-name "exiv2 -g Xmp.xmp.Rating -Pv (1,000 XMP)" \
  "exiv2 -g Xmp.xmp.Rating -Pv $(echo "$folder"/*.xmp)"
