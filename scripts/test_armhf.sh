#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Cross-builds libkv for the BMC's 32-bit ARM (armhf) and runs the whole
# test suite under qemu-arm user-mode emulation. The i2c-tools programs the
# tests run under kvsim are Debian's i2c-tools:armhf, unpacked into the build
# folder: installing the package would replace the machine's own tools.
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh

dir=build-armhf
tools=$dir/i2c-tools
if [ ! -x "$tools/root/usr/sbin/i2ctransfer" ]; then
    mkdir -p "$tools"
    (cd "$tools" && apt-get download -qq i2c-tools:armhf)
    dpkg-deb -x "$tools"/i2c-tools_*_armhf.deb "$tools/root"
fi
[ -f "$dir/build.ninja" ] ||
    meson setup "$dir" --cross-file cross/armhf.txt \
        -Di2c_tools="$PWD/$tools/root/usr/sbin" >/dev/null

start=$(date +%s)
meson compile -C "$dir" -j 2
built=$(date +%s)
meson test -C "$dir" --print-errorlogs --num-processes 2
echo "armhf: build $((built - start)) s, suite under emulation $(($(date +%s) - built)) s"
