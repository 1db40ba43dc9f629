#!/usr/bin/env bash
# Installs the Debian 12 packages that building, running and testing Vantelor need.
# Usage: scripts/install-deps.sh [app|test]   (test adds the peers and fuzzing toolchain)
set -euo pipefail

want=${1:-test}

build_pkgs=(
  cmake ninja-build g++ pkg-config ccache
  qt6-base-dev qt6-qpa-plugins qt6-image-formats-plugins qt6-svg-dev libqt6svg6
  libexiv2-dev libraw-dev libheif-dev libturbojpeg0-dev libjpeg62-turbo-dev
  libexpat1-dev libssl-dev libxkbcommon-x11-dev
  fonts-dejavu-core
)
test_pkgs=(
  libgtest-dev libgmock-dev libbenchmark-dev
  clang-14 libclang-rt-14-dev
  xvfb xauth time imagemagick
  exiv2 libimage-exiftool-perl libvips-tools libjpeg-turbo-progs hyperfine
  desktop-file-utils appstream dpkg-dev
  libc-l10n
)

pkgs=("${build_pkgs[@]}")
[ "$want" = test ] && pkgs+=("${test_pkgs[@]}")

missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
[ "$(id -u)" -ne 0 ] && sudo=(sudo)
echo "Instalando paquetes: ${missing[*]}"
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
