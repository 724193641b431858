#!/usr/bin/env bash
# Installs the Debian packages a job needs, and only those that are missing,
# so that a machine that has them needs no network.
#   install-deps.sh main   the build of the library and the velmora program
#   install-deps.sh test   everything the test command uses
set -euo pipefail

packages=(cmake make g++ python3 pkg-config libssl-dev libexpat1-dev libfreetype-dev libfontconfig-dev
          fonts-liberation2 fonts-dejavu-core icc-profiles-free qpdf poppler-utils)
if [[ "${1:-main}" == "test" ]]; then
  packages+=(googletest clang-14 libclang-rt-14-dev pkg-config libtiff-tools libtiff-dev zlib1g-dev
             imagemagick python3-pil python3-numpy libbenchmark-dev
             libjpeg-turbo-progs libjpeg62-turbo-dev libpng-dev time
             g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix binutils-mingw-w64-x86-64
             binutils-mingw-w64-i686 wine wine64 tesseract-ocr tesseract-ocr-eng)
fi

missing=()
for package in "${packages[@]}"; do
  dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "installing: ${missing[*]}" >&2
sudo_cmd=()
if [[ $(id -u) -ne 0 ]]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
