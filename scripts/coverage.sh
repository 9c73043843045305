#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds libkv with coverage counters, runs the whole suite, and prints the
# line and branch coverage of each source folder.
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh coverage
sh scripts/configure.sh build-coverage -Db_coverage=true
meson compile -C build-coverage >/dev/null
find build-coverage -name '*.gcda' -delete
# The export list is left out: the counters add symbols of their own.
meson test -C build-coverage --num-processes 2 --no-suite abi >/dev/null || {
    echo "coverage: the suite failed; see build-coverage/meson-logs" >&2
    exit 1
}
# gcovr replaces its output file, so it gets a scratch file of its own.
report=$(mktemp)
trap 'rm -f "$report"' EXIT
printf '%-12s %26s %26s\n' folder lines branches
for dir in foundation hw ipc fru platform events services access; do
    gcovr --root . --object-directory build-coverage --filter "$dir/" \
        --exclude-unreachable-branches --exclude-throw-branches \
        --print-summary --output "$report" |
        awk -v dir="$dir" '
            /^lines:/ { sub(/^lines: */, ""); lines = $0 }
            /^branches:/ { sub(/^branches: */, ""); branches = $0 }
            END { printf "%-12s %26s %26s\n", dir, lines, branches }'
done
