#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs the Debian packages that libkv's build, tests and tools need: for
# the stages named (plain, sanitize, armhf, bmc, powercut, fuzz, package,
# bench, coverage, tour), or for all of them. Idempotent and quiet when everything is already there.
#   sh scripts/setup.sh [STAGE]...
set -eu

# The library, its tools and the suite with the peers it checks against.
plain="
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
tzdata
iproute2
snmpd
snmp
s-nail
strace
"
# The cross build for the BMC's 32-bit ARM, against Debian's :armhf
# development packages, run under qemu-arm.
cross="
g++-arm-linux-gnueabihf
qemu-user-static
libcjson-dev:armhf
libi2c-dev:armhf
libcurl4-openssl-dev:armhf
libgtest-dev:armhf
libgmock-dev:armhf
libstdc++6:armhf
"
# The emulated AST2600 BMC.
guest="
qemu-system-arm
device-tree-compiler
cpio
"
# Its disks in the power-cut stage: made and checked on the host.
disks="
e2fsprogs
"
fuzz="
clang
libclang-rt-14-dev
"
bench="
libbenchmark-dev
libfreeipmi-dev
e2fsprogs
"
coverage="
gcovr
"
# Debian packages of libkv, checked with lintian, hardening-check (in
# devscripts), man and clang-tidy.
package="
dpkg-dev
debhelper
lintian
devscripts
man-db
clang-tidy
"

stages=${*:-plain sanitize armhf bmc powercut fuzz package bench coverage tour}
packages=""
armhf=false
for stage in $stages; do
    case $stage in
    plain | sanitize | tour) packages="$packages $plain" ;;
    armhf) packages="$packages $plain $cross" armhf=true ;;
    bmc) packages="$packages $plain $cross $guest" armhf=true ;;
    powercut) packages="$packages $plain $cross $guest $disks" armhf=true ;;
    fuzz) packages="$packages $plain $fuzz" ;;
    bench) packages="$packages $plain $bench" ;;
    coverage) packages="$packages $plain $coverage" ;;
    package) packages="$packages $plain $package" ;;
    *)
        echo "setup.sh: unknown stage '$stage'" >&2
        exit 2
        ;;
    esac
done

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

# armhf programs that the armhf tests spawn (kvsim, fru, the armhf
# i2c-tools) run through the kernel's binfmt_misc entry for qemu-arm, which
# Debian registers at boot through systemd; without systemd it is missing.
register_qemu_arm() {
    misc=/proc/sys/fs/binfmt_misc
    [ -e "$misc/qemu-arm" ] && return 0
    [ -e "$misc/register" ] || $sudo mount -t binfmt_misc binfmt_misc "$misc"
    $sudo sh -c "cat /usr/lib/binfmt.d/qemu-arm.conf >$misc/register"
}

if $armhf; then
    dpkg --print-foreign-architectures | grep -qx armhf ||
        $sudo dpkg --add-architecture armhf
fi

missing=""
for p in $(echo "$packages" | tr ' ' '\n' | sort -u); do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing="$missing $p"
    fi
done
if [ -n "$missing" ]; then
    echo "setup: installing$missing"
    export DEBIAN_FRONTEND=noninteractive
    # A mirror caught mid-sync can leave one architecture's security index
    # out; the install below copes, so a failed index is not fatal here.
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
fi
if $armhf; then
    register_qemu_arm
fi
