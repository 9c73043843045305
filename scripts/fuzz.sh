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
# The targets are the sources fuzz/<target>_fuzz.cpp.
targets=$(ls fuzz/*_fuzz.cpp | sed 's|fuzz/\(.*\)_fuzz\.cpp|\1|')
sh scripts/setup.sh fuzz
# clang links the sanitizer runtime into programs only, so the shared
# library is left with undefined references to it until then.
CC=clang CXX=clang++ sh scripts/configure.sh build-fuzz -Dfuzz=true \
    -Db_sanitize=address,undefined -Db_lundef=false
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
