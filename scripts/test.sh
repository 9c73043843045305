#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The test command. It runs the stages named, or all of them in this order:
#   plain     build libkv and run the whole suite
#   sanitize  the same with the address and undefined-behaviour sanitizers
#   armhf     cross-build for the BMC's 32-bit ARM, run the suite under qemu-arm
#   bmc       boot an emulated AST2600 BMC, run the hardware tests on its kernel
#   powercut  cut the emulated BMC's power while it rewrites files on its
#             ext4 and jffs2 disks; every file must hold what was reported
#   fuzz      every fuzz target for 10 s on a clang build with the sanitizers
#   package   build the Debian packages and check them, clang-tidy the library
# and ends with the time each stage took.
#   sh scripts/test.sh [plain|sanitize|armhf|bmc|powercut|fuzz|package]...
set -eu
cd "$(dirname "$0")/.."

stages=${*:-plain sanitize armhf bmc powercut fuzz package}
for stage in $stages; do
    case $stage in
    plain | sanitize | armhf | bmc | powercut | fuzz | package) ;;
    *)
        echo "test.sh: unknown stage '$stage' (plain, sanitize, armhf, bmc, powercut, fuzz, package)" >&2
        exit 2
        ;;
    esac
done
# shellcheck disable=SC2086
sh scripts/setup.sh $stages

run_suite() {
    dir=$1
    shift
    sh scripts/configure.sh "$dir" "$@"
    meson compile -C "$dir"
    meson test -C "$dir" --print-errorlogs --num-processes 2
}

times=""
for stage in $stages; do
    start=$(date +%s)
    case $stage in
    plain) run_suite build ;;
    sanitize)
        ASAN_OPTIONS=detect_leaks=1 \
            UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
            run_suite build-sanitize -Db_sanitize=address,undefined
        ;;
    armhf) sh scripts/test_armhf.sh ;;
    bmc) sh scripts/test_bmc.sh ;;
    powercut) sh scripts/test_powercut.sh ;;
    fuzz) sh scripts/fuzz.sh 10 ;;
    package) sh scripts/test_package.sh ;;
    esac
    times="$times
  $stage: $(($(date +%s) - start)) s"
done
echo "test.sh: every stage passed; times:$times"
