#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Prints the names libkv exports on CPU (a Debian CPU name: amd64, arm, ...),
# sorted, from expected_symbols.txt beside this script.
#   sh symbol_list.sh CPU
set -eu
# The list holds x86-64 names; 32-bit ARM passes va_list as std::__va_list.
case $1 in
arm) va='s/P13__va_list_tag/St9__va_list/' ;;
*) va='' ;;
esac
grep -v -e '^#' -e '^$' "$(dirname "$0")/expected_symbols.txt" | sed "$va" |
    LC_ALL=C sort
