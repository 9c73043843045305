#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs every fuzz target for a while (default 60 s each) on a clang build
# with the address and undefined-behaviour sanitizers, starting from the
# seeds in fuzz/corpus/<target>. Usage:
#   sh scripts/fuzz.sh [SECONDS]
# What a run finds and the inputs it adds stay in build-fuzz/run-<target>.
set -eu
cd "$(dirname "$0")/.."
root=$PWD
seconds=${1:-60}
targets="fru_image fru_ini sel_parse nail_rc snmpd_conf access_files
access_text kvfile kvfile_write bonding kernel_log"
command -v clang++ >/dev/null || {
    echo "fuzz.sh needs clang (Debian package clang)" >&2
    exit 1
}
[ -f build-fuzz/build.ninja ] ||
    CC=clang CXX=clang++ meson setup build-fuzz -Dfuzz=true \
        -Db_sanitize=address,undefined >/dev/null
for name in $targets; do
    out=$(meson compile -C build-fuzz "fuzz/fuzz_$name" 2>&1) || {
        echo "$out" | tail -30
        exit 1
    }
done
for name in $targets; do
    # Inside the build tree, which the sandboxed targets still see.
    run="$root/build-fuzz/run-$name"
    rm -rf "$run"
    mkdir -p "$run/corpus"
    echo "== fuzz_$name, ${seconds} s"
    (cd "$run" && "$root/build-fuzz/fuzz/fuzz_$name" \
        -max_total_time="$seconds" -max_len=4096 \
        "$run/corpus" "$root/fuzz/corpus/$name" >/dev/null 2>"$run/log") || {
        tail -40 "$run/log"
        exit 1
    }
    tail -1 "$run/log"
done
