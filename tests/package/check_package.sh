#!/usr/bin/env bash
# Installs the build in BUILD into a fresh prefix, then builds the host
# program against it twice, through find_package(velmora) and through
# pkg-config, and runs both. Extra compiler flags for the host (the
# sanitizers of an instrumented library) come from HOST_FLAGS.
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
lib=$(ls -d "$work"/prefix/lib*/ | head -1)
test -f "$work/prefix/include/velmora/velmora.h"
soname=$(objdump -p "$lib/libvelmorau.so" | awk '/SONAME/ {print $2}')
[[ "$soname" == libvelmorau.so.8 ]] || { echo "SONAME is '$soname'"; exit 1; }

cmake -S "$here" -B "$work/cmake-host" -DCMAKE_PREFIX_PATH="$work/prefix" \
  -DCMAKE_C_FLAGS="${HOST_FLAGS:-}" -DCMAKE_EXE_LINKER_FLAGS="${HOST_FLAGS:-}" >/dev/null
cmake --build "$work/cmake-host" >/dev/null
LD_LIBRARY_PATH="$lib" "$work/cmake-host/host" | grep -q '^Velmora 8\.748'

export PKG_CONFIG_PATH="$lib/pkgconfig"
cc ${HOST_FLAGS:-} "$here/host.c" $(pkg-config --cflags --libs velmora) -o "$work/pc-host"
LD_LIBRARY_PATH="$lib" "$work/pc-host" | grep -q '^Velmora 8\.748'

"$work/prefix/bin/velmora" version | grep -q 'Velmora 8\.748'
echo "package: find_package, pkg-config and the installed program work"
