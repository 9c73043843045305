#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Writes the symbols file of libkv1 from the export list on standard input.
#   sh debian/symbols.sh VERSION <list
set -eu
echo "libkv.so.1 libkv1 #MINVER#"
echo "* Build-Depends-Package: libkv-dev"
sed "s/\$/@Base $1/; s/^/ /"
