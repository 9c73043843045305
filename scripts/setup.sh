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
"

missing=""
for p in $packages; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing="$missing $p"
    fi
done
[ -z "$missing" ] && exit 0

echo "setup: installing$missing"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
# shellcheck disable=SC2086
$sudo apt-get install -y -qq --no-install-recommends $missing >/dev/null
