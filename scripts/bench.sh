#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds the benchmarks (meson option bench) and runs them: SEL records to
# text, libkv against FreeIPMI over the same records (extra arguments go to
# this one, e.g. --benchmark_repetitions=3), and a login check against its
# floor.
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh
[ -f build-bench/build.ninja ] || meson setup build-bench -Dbench=true >/dev/null
meson compile -C build-bench bench/sel_text_bench >/dev/null
build-bench/bench/sel_text_bench "$@"
meson compile -C build-bench bench/access_bench >/dev/null
build-bench/bench/access_bench
