#!/usr/bin/env bash
# The main job: builds the library and the velmora program and runs it.
# With no arguments it shows the version and the message of an error code;
# any arguments are passed to velmora as they are.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh" main

build="$root/build/release"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DVELMORA_TESTS=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" >/dev/null

if (($# > 0)); then
  exec "$build/velmora" "$@"
fi
"$build/velmora" version
"$build/velmora" error 0x02000003
