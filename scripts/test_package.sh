#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The packaging stage. Builds the Debian packages from a copy of the tree
# (nothing is written into the tree, nothing installed on the host), and
# checks them: lintian, hardening-check on every ELF file they ship, one of
# the C examples built against the unpacked -dev package through pkg-config
# and run with the unpacked tools, every man page rendered. Then clang-tidy
# over the library, failing on any finding.
set -eu
cd "$(dirname "$0")/.."
tree=$(pwd)
sh scripts/setup.sh package

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/libkv" "$work/root"
git ls-files -z | xargs -0 tar -cf - | tar -xf - -C "$work/libkv"

# The suite runs in its own stages; this build also proves that the library
# and tools build without the test dependencies.
(cd "$work/libkv" &&
    DEB_BUILD_OPTIONS="nocheck parallel=2" DEB_BUILD_PROFILES=nocheck \
        dpkg-buildpackage -us -uc -b >"$work/build.log" 2>&1) || {
    tail -n 40 "$work/build.log"
    echo "package: dpkg-buildpackage failed" >&2
    exit 1
}
lintian --fail-on error,warning --display-info "$work"/*.changes

# The three packages, without the detached debug symbols dh adds beside them.
for deb in "$work"/libkv1_*.deb "$work"/libkv-dev_*.deb "$work"/libkv-tools_*.deb; do
    dpkg-deb -x "$deb" "$work/root"
done
# Control-flow protection is not among Debian 12's hardening flags.
find "$work/root" -type f | while read -r file; do
    if [ "$(head -c 4 "$file")" = "$(printf '\177ELF')" ]; then
        hardening-check --quiet --nocfprotection "$file" || exit 1
    fi
done

triplet=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
libs=$work/root/usr/lib/$triplet
# shellcheck disable=SC2046
cc -Wall -Wextra -o "$work/foundation_tour" examples/foundation_tour.c \
    $(PKG_CONFIG_SYSROOT_DIR="$work/root" \
        PKG_CONFIG_LIBDIR="$libs/pkgconfig:/usr/lib/$triplet/pkgconfig:/usr/share/pkgconfig" \
        pkg-config --cflags --libs libkv)
export LD_LIBRARY_PATH="$libs:$libs/libkv"
"$work/root/usr/bin/kvsim" --help >/dev/null
"$work/root/usr/bin/kvsandbox" "$work/foundation_tour" >"$work/tour.log"
grep -q . "$work/tour.log"
unset LD_LIBRARY_PATH

for page in "$work"/root/usr/share/man/man*/*; do
    warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
    [ -z "$warnings" ] || { echo "$page: $warnings" >&2; exit 1; }
done
echo "package: libkv1, libkv-dev and libkv-tools built and checked"

# Only configured: clang-tidy needs the compile commands, not the objects.
meson setup "$work/tidy" >"$work/tidy.log" || {
    cat "$work/tidy.log"
    exit 1
}
find foundation hw ipc fru platform events services access -name '*.cpp' |
    xargs -P 2 -n 8 clang-tidy -p "$work/tidy" --quiet --warnings-as-errors='*' \
        >"$work/tidy.out" 2>&1 || {
    grep -v 'warnings generated' "$work/tidy.out"
    exit 1
}
echo "package: clang-tidy found nothing"
