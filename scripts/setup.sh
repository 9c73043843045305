#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs every Debian package that libkv's build, tests and tools need.
# Idempotent and quiet when everything is already there.
set -eu

packages="
meson
ninja-build
g++
pkg-config
binutils
libcjson-dev
libi2c-dev
i2c-tools
libcurl4-openssl-dev
googletest
libgtest-dev
libgmock-dev
sysvinit-utils
freeipmi-tools
libfreeipmi-dev
libbenchmark-dev
tzdata
iproute2
snmpd
snmp
s-nail
clang
libclang-rt-14-dev
gcovr
strace
g++-arm-linux-gnueabihf
qemu-user-static
qemu-system-arm
device-tree-compiler
cpio
libcjson-dev:armhf
libi2c-dev:armhf
libcurl4-openssl-dev:armhf
libgtest-dev:armhf
libgmock-dev:armhf
libstdc++6:armhf
"

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

# The cross build for the BMC's 32-bit ARM links against Debian's :armhf
# development packages.
dpkg --print-foreign-architectures | grep -qx armhf ||
    $sudo dpkg --add-architecture armhf

# armhf programs that the armhf tests spawn (kvsim, fru, the armhf
# i2c-tools) run through the kernel's binfmt_misc entry for qemu-arm, which
# Debian registers at boot through systemd; without systemd it is missing.
register_qemu_arm() {
    misc=/proc/sys/fs/binfmt_misc
    [ -e "$misc/qemu-arm" ] && return 0
    [ -e "$misc/register" ] || $sudo mount -t binfmt_misc binfmt_misc "$misc"
    $sudo sh -c "cat /usr/lib/binfmt.d/qemu-arm.conf >$misc/register"
}

missing=""
for p in $packages; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing="$missing $p"
    fi
done
if [ -z "$missing" ]; then
    register_qemu_arm
    exit 0
fi

echo "setup: installing$missing"
export DEBIAN_FRONTEND=noninteractive
# A mirror caught mid-sync can leave one architecture's security index out;
# the install below copes, so a failed index is not fatal here.
$sudo apt-get update -qq || true
# shellcheck disable=SC2086
if ! $sudo apt-get install -y -qq --no-install-recommends $missing >/dev/null; then
    # Multi-arch libraries must have one version on both architectures.
    # Without armhf's security index, take both from the main archive.
    pin=$(mktemp)
    printf 'Package: *\nPin: release l=Debian-Security\nPin-Priority: 100\n' >"$pin"
    # shellcheck disable=SC2086
    $sudo apt-get -o Dir::Etc::Preferences="$pin" install -y -qq \
        --no-install-recommends $missing >/dev/null
    rm -f "$pin"
fi
register_qemu_arm
