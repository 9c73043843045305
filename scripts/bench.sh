#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds the benchmarks (meson option bench) and runs them: SEL records to
# text, libkv against FreeIPMI over the same records, a FRU image parsed by
# libkv and by FreeIPMI's FRU parser, event forwarding,
# libkv's posts against the curl program's, the classified log and the
# key=value files against the bare system calls (in kvsandbox, as the log
# lives under /run), and a login check against its floor. The key=value
# files run twice: on tmpfs, and on an ext4 image of their own mounted in a
# private mount namespace (as root), where the syncs reach a disk. Extra
# arguments go to the benchmarks but the last, e.g.
# --benchmark_repetitions=3.
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh bench
sh scripts/configure.sh build-bench -Dbench=true --buildtype=release
meson compile -C build-bench -j 2 bench/sel_text_bench bench/fru_parse_bench \
    bench/event_forwarding_bench bench/log_bench bench/kvfile_bench \
    bench/access_bench tools/kvsandbox >/dev/null
build-bench/bench/sel_text_bench "$@"
build-bench/bench/fru_parse_bench "$@"
build-bench/bench/event_forwarding_bench "$@"
build-bench/tools/kvsandbox -- build-bench/bench/log_bench "$@"
build-bench/tools/kvsandbox -- build-bench/bench/kvfile_bench "$@"
# The loop device is made by mount and freed with the namespace's mount, so
# nothing stays behind on the host when the run stops, however it stops.
image=build-bench/kvfile-ext4.img
trap 'rm -f "$image"' EXIT
rm -f "$image"
truncate -s 64M "$image"
mkfs.ext4 -q -F "$image"
mkdir -p build-bench/kvfile-ext4
unshare -m --propagation private sh -euc '
    mount -o loop "$1" "$2"
    trap "umount $2" EXIT
    dir=$2
    shift 2
    KV_BENCH_DIR=$PWD/$dir build-bench/tools/kvsandbox -- \
        build-bench/bench/kvfile_bench "$@"
' ext4-bench "$image" build-bench/kvfile-ext4 "$@"
build-bench/bench/access_bench
