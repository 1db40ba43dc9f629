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
  -n "vantelor, un núcleo" "taskset -c 0 $cli preview $work/*.NEF --size 2560" \
  -n djpeg "for f in $work/jpeg/*.jpg; do djpeg -scale 1/2 \"\$f\" >/dev/null; done"
# The medians in the order the commands were given: vantelor, vantelor on one core, djpeg.
medians=($(grep -o '"median": *[0-9.e+-]*' "$work/hyperfine.json" | awk '{print $2}'))
awk -v v="${medians[0]}" -v v1="${medians[1]}" -v d="${medians[2]}" 'BEGIN {
  printf "vantelor-cli preview: mediana %.0f ms (un núcleo: %.0f ms); djpeg -scale 1/2: mediana %.0f ms\n", v * 1000, v1 * 1000, d * 1000
  printf "cociente %.2f (un núcleo: %.2f); objetivo ≤ 1.30\n", v / d, v1 / d }'

# One core for the whole program: the peaking figure is a single-core figure.
taskset -c 0 "$bench" run "$work"
