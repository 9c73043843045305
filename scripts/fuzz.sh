#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs every fuzz target for a while (default 60 s each) on a clang build
# with the address and undefined-behaviour sanitizers. Usage:
#   sh scripts/fuzz.sh [SECONDS]
set -eu
cd "$(dirname "$0")/.."
root=$PWD
seconds=${1:-60}
targets="fru_image fru_ini sel_parse nail_rc snmpd_conf access_files access_text"
command -v clang++ >/dev/null || {
    echo "fuzz.sh needs clang (Debian package clang)" >&2
    exit 1
}
[ -f build-fuzz/build.ninja ] ||
    CC=clang CXX=clang++ meson setup build-fuzz -Dfuzz=true \
        -Db_sanitize=address,undefined >/dev/null
for name in $targets; do
    meson compile -C build-fuzz "fuzz/fuzz_$name" >/dev/null
done
for name in $targets; do
    work=$(mktemp -d)
    echo "== fuzz_$name, ${seconds} s"
    (cd "$work" && "$root/build-fuzz/fuzz/fuzz_$name" -max_total_time="$seconds" \
        -max_len=4096 >/dev/null 2>"$work/log") || {
        tail -40 "$work/log"
        exit 1
    }
    tail -1 "$work/log"
    rm -rf "$work"
done
