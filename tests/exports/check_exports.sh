#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Compares the dynamic symbols that libkv defines with the expected list.
# usage: check_exports.sh LIBRARY EXPECTED_LIST
set -eu
lib=$1
expected=$2

# The list holds x86-64 names; 32-bit ARM passes va_list as std::__va_list.
# The library's own ELF header says which it is: the script itself runs on
# the build machine, also for a cross build.
case $(readelf -h "$lib" | sed -n 's/^ *Machine: *//p') in
ARM) va='s/P13__va_list_tag/St9__va_list/' ;;
*) va='' ;;
esac

want=$(mktemp)
have=$(mktemp)
trap 'rm -f "$want" "$have"' EXIT
grep -v -e '^#' -e '^$' "$expected" | sed "$va" | LC_ALL=C sort >"$want"
# The address sanitizer adds one ODR indicator per exported variable.
nm -D --defined-only "$lib" | awk '{print $3}' | grep -v '^__odr_asan\.' |
    LC_ALL=C sort >"$have"

if ! diff -u "$want" "$have"; then
    echo "exports: '-' lines are missing from the library, '+' lines are stray"
    exit 1
fi
echo "exports: $(wc -l <"$have") symbols as expected"
