#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Cross-builds libkv for the BMC's 32-bit ARM (armhf) and runs the whole
# test suite under qemu-arm user-mode emulation.
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh armhf

dir=build-armhf
sh scripts/armhf_setup.sh

start=$(date +%s)
meson compile -C "$dir" -j 2
built=$(date +%s)
meson test -C "$dir" --print-errorlogs --num-processes 2
echo "armhf: build $((built - start)) s, suite under emulation $(($(date +%s) - built)) s"
