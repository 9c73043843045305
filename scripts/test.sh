#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds libkv twice, plain and with the address and undefined-behaviour
# sanitizers, runs the whole test suite on both builds, then cross-builds
# for armhf and runs the suite under qemu-arm, boots an emulated AST2600 BMC
# that runs the hardware tests against the kernel's own drivers, then every
# fuzz target for 20 s on a clang build with the same sanitizers.
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh

run_suite() {
    dir=$1
    shift
    [ -f "$dir/build.ninja" ] || meson setup "$dir" "$@" >/dev/null
    meson compile -C "$dir"
    meson test -C "$dir" --print-errorlogs --num-processes 2
}

run_suite build
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
    run_suite build-sanitize -Db_sanitize=address,undefined
sh scripts/test_armhf.sh
sh scripts/test_bmc.sh
sh scripts/fuzz.sh 20
