#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Compares the dynamic symbols that libkv defines with the expected list.
# usage: check_exports.sh LIBRARY
set -eu
lib=$1

# The library's own ELF header says which CPU it is for: the script itself
# runs on the build machine, also for a cross build.
case $(readelf -h "$lib" | sed -n 's/^ *Machine: *//p') in
ARM) cpu=arm ;;
*) cpu=other ;;
esac

want=$(mktemp)
have=$(mktemp)
trap 'rm -f "$want" "$have"' EXIT
sh "$(dirname "$0")/symbol_list.sh" "$cpu" >"$want"
# The address sanitizer adds one ODR indicator per exported variable.
nm -D --defined-only "$lib" | awk '{print $3}' | grep -v '^__odr_asan\.' |
    LC_ALL=C sort >"$have"

if ! diff -u "$want" "$have"; then
    echo "exports: '-' lines are missing from the library, '+' lines are stray"
    exit 1
fi
echo "exports: $(wc -l <"$have") symbols as expected"
