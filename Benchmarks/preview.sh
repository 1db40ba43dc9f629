#!/usr/bin/env bash
# Preview benchmark: 50 NEFs with a 6048 × 4032 embedded JPEG (about 4 MB) each, turned into
# 2560-pixel previews by `vantelor-cli preview`, against libjpeg-turbo's djpeg decoding the same
# 50 JPEGs at 1/2 scale to /dev/null, in the same run (hyperfine, whole processes). Then the
# cache hit time, the memory of 6 prefetches and focus peaking on one core (bench-preview).
# Usage: Benchmarks/preview.sh [BUILD_DIR]     (build by default)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
cli="$build/Sources/VantelorCLI/vantelor-cli"
bench="$build/Benchmarks/bench-preview"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_CACHE_HOME="$work/xdg-cache"

"$bench" make "$work" 50
mkdir "$work/jpeg"
for nef in "$work"/*.NEF; do
  "$cli" nef-preview "$nef" --out "$work/jpeg/$(basename "$nef" .NEF).jpg" >/dev/null
done
cat "$work"/*.NEF "$work"/jpeg/*.jpg >/dev/null  # both sides start from the page cache

hyperfine --warmup 1 --runs "${RUNS:-7}" --export-json "$work/hyperfine.json" \
  -n vantelor "$cli preview $work/*.NEF --size 2560" \
  -n djpeg "for f in $work/jpeg/*.jpg; do djpeg -scale 1/2 \"\$f\" >/dev/null; done"
python3 - "$work/hyperfine.json" <<'PY'
import json, sys
r = {x["command"]: x for x in json.load(open(sys.argv[1]))["results"]}
v, d = r["vantelor"]["median"], r["djpeg"]["median"]
print(f"vantelor-cli preview: mediana {v*1000:.0f} ms; djpeg -scale 1/2: mediana {d*1000:.0f} ms; "
      f"cociente {v/d:.2f} (objetivo ≤ 1.30)")
PY

# One core for the whole program: the peaking figure is a single-core figure.
taskset -c 0 "$bench" run "$work"
