#!/usr/bin/env bash
# Verified copy and move of 40 files of 50 MB against the common safe-copy script
# `cp -p SRC… DEST && sha256sum SRC… && sha256sum DEST/…`, in one run, page cache warm, plus the
# peak resident memory of each. Every run starts from clean dirty-page state (sync in --prepare).
# Usage: Benchmarks/transfer.sh [BUILD_DIR]   (FILES=40 SIZE_MB=50 RUNS=3 by default;
# WORK=folder to put the 2 GB of files elsewhere than /tmp)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
cli=$(realpath "$build/Sources/VantelorCLI/vantelor-cli")
files=${FILES:-40}
size=${SIZE_MB:-50}
runs=${RUNS:-3}
work=$(mktemp -d "${WORK:-/tmp}/vantelor-bench-transfer.XXXXXX")
trap 'rm -rf "$work"' EXIT

src="$work/src"
dest="$work/dest"
mkdir -p "$src" "$dest"
for ((i = 1; i <= files; i++)); do
  name=$(printf 'DSC_%04d.NEF' "$i")
  head -c "${size}M" /dev/urandom >"$src/$name"
done
cat "$src"/* >/dev/null  # warm the page cache
sources=$(printf '%s ' "$src"/*.NEF)
copies=$(cd "$src" && printf "$dest/%s " *.NEF)

# A move keeps the originals in .vantelor-move-recovery: put them back (renames, cache stays warm).
restore="bash -c 'shopt -s nullglob; for f in $src/.vantelor-move-recovery/*/*.NEF; do mv \"\$f\" $src/; done; \
rm -rf $src/.vantelor-move-recovery $dest; mkdir $dest; sync'"
fresh="bash -c 'rm -rf $dest; mkdir $dest; sync'"

echo "== $files files of $size MB: verified copy and move (warm cache) =="
hyperfine -N --runs "$runs" --export-markdown "$work/transfer.md" \
  -n "cp -p && sha256sum ×2" --prepare "$fresh" \
  "bash -c \"cp -p $sources $dest && sha256sum $sources >/dev/null && sha256sum $copies >/dev/null\"" \
  -n "vantelor-cli copy" --prepare "$fresh" "$cli copy --yes $sources --to $dest" \
  -n "vantelor-cli move" --prepare "$restore" "$cli move --yes $sources --to $dest" >/dev/null
cat "$work/transfer.md"

echo "== Peak resident memory =="
bash -c "$restore"
/usr/bin/env time -f "vantelor-cli copy: %M KB peak resident, %e s" "$cli" copy --yes $sources --to "$dest" >/dev/null
bash -c "$restore"
/usr/bin/env time -f "vantelor-cli move: %M KB peak resident, %e s" "$cli" move --yes $sources --to "$dest" >/dev/null
bash -c "$restore"
/usr/bin/env time -f "cp -p: %M KB peak resident, %e s" cp -p $sources "$dest"
