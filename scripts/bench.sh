#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds the benchmarks (meson option bench) and runs them: SEL records to
# text, libkv against FreeIPMI over the same records, event forwarding,
# libkv's posts against the curl program's (extra arguments go to these two,
# e.g. --benchmark_repetitions=3), and a login check against its floor.
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh
[ -f build-bench/build.ninja ] || meson setup build-bench -Dbench=true >/dev/null
meson compile -C build-bench bench/sel_text_bench \
    bench/event_forwarding_bench bench/access_bench >/dev/null
build-bench/bench/sel_text_bench "$@"
build-bench/bench/event_forwarding_bench "$@"
build-bench/bench/access_bench
