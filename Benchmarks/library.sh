#!/usr/bin/env bash
# Folder scanning and capture-time reading against find|sort, exiv2 and exiftool, in one run.
# Usage: Benchmarks/library.sh [BUILD_DIR]   (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
cli="$build/Sources/VantelorCLI/vantelor-cli"
bench="$build/Benchmarks/bench-library"
work=$(mktemp -d /tmp/vantelor-bench-library.XXXXXX)
trap 'rm -rf "$work"' EXIT

mkdir -p "$work/scan" "$work/big" "$work/nefs"
"$bench" make-scan "$work/scan" 10000 10000
"$bench" make-scan "$work/big" 50000 50000
"$bench" make-nefs "$work/nefs" 1000

echo "== Scan: 10,000 photos + 10,000 other files (warm cache) =="
hyperfine -N --warmup 3 --runs 15 --export-markdown "$work/scan.md" \
  -n vantelor-cli "$cli scan $work/scan" \
  -n "find | sort -V" "bash -c \"find $work/scan -maxdepth 1 -type f -printf '%s %T@ %p\\n' | sort -V\"" >/dev/null
cat "$work/scan.md"
"$bench" scan "$work/scan" 9

echo "== Memory: 100,000 entries =="
"$bench" scan "$work/big" 1
/usr/bin/env time -f "vantelor-cli scan: %M KB peak resident, %e s" "$cli" scan "$work/big" >/dev/null

echo "== Capture times of 1,000 NEF files (warm cache) =="
files=("$work"/nefs/*.NEF)
hyperfine -N --warmup 2 --runs 10 --export-markdown "$work/dates.md" \
  -n vantelor-cli "$cli dates $work/nefs" \
  -n exiv2 "bash -c \"exiv2 -g Exif.Photo.DateTimeOriginal -Pv $work/nefs/*.NEF\"" \
  -n "exiftool -fast2" "exiftool -fast2 -s3 -DateTimeOriginal $work/nefs" >/dev/null
cat "$work/dates.md"
"$bench" dates "$work/nefs" 9
