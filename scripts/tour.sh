#!/bin/sh
# Builds libkv and runs the foundation tour inside the sandbox.
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh
[ -f build/build.ninja ] || meson setup build >/dev/null
meson compile -C build >/dev/null
exec build/tools/kvsandbox -- build/examples/foundation_tour
