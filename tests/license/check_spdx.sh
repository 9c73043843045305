#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Every source, header, build file and script of the tree names its licence
# in its first lines.
# usage: check_spdx.sh SOURCE-ROOT
set -eu
cd "$1"
missing=$(find . \( -name '.git' -o -name 'build*' -o -name 'subprojects' \) -prune -o \
    -type f \( -name '*.c' -o -name '*.cpp' -o -name '*.h' -o -name '*.sh' \
    -o -name 'meson.build' -o -name 'meson_options.txt' \) -print |
    while read -r file; do
        head -n 3 "$file" | grep -q 'SPDX-License-Identifier: Apache-2.0' ||
            echo "$file"
    done)
if [ -n "$missing" ]; then
    echo "no SPDX line in:"
    echo "$missing"
    exit 1
fi
echo "spdx: every file names its licence"
