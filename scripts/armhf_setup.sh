#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Configures build-armhf, the cross build for the BMC's 32-bit ARM, once, for
# both the suite under qemu-arm and the emulated BMC. The i2c-tools programs
# the tests run under kvsim are Debian's i2c-tools:armhf, unpacked into the
# build folder: installing the package would replace the machine's own tools.
set -eu
cd "$(dirname "$0")/.."

dir=build-armhf
tools=$dir/i2c-tools
if [ ! -x "$tools/root/usr/sbin/i2ctransfer" ]; then
    mkdir -p "$tools"
    (cd "$tools" && apt-get download -qq i2c-tools:armhf)
    dpkg-deb -x "$tools"/i2c-tools_*_armhf.deb "$tools/root"
fi
sh scripts/configure.sh "$dir" --cross-file cross/armhf.txt \
    -Di2c_tools="$PWD/$tools/root/usr/sbin"
