#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Boots an emulated AST2600 BMC (qemu-system-arm -M ast2600-evb) with
# Debian's armhf kernel and its real drivers (i2c-aspeed, at24, pca954x,
# bonding, ftgmac100, aspeed-gpio), and runs the armhf guest tests of libkv
# on it. The initramfs is made here from busybox-static, the kernel modules,
# the armhf build and the armhf shared libraries those need. Results come
# back over the serial console: every test prints a pass or fail line and
# the guest a verdict. Fails on any failed test, a missing verdict, or a
# guest that has not finished within the time limit.
set -eu
cd "$(dirname "$0")/.."
root=$(pwd)

build=build-armhf
work=$build/bmc
time_limit=${KV_BMC_TIME_LIMIT:-300}
multiarch=arm-linux-gnueabihf

sh scripts/setup.sh bmc
sh scripts/armhf_setup.sh
meson compile -C "$build" -j 2 kv fru bmc_guest_test

# The kernel package's name carries its ABI version, which changes with
# updates: resolve the metapackage's dependency now.
kernel_package=$(apt-cache depends linux-image-armmp:armhf |
    sed -n 's/^ *Depends: \(linux-image-[0-9].*-armmp\).*/\1/p' | head -n 1)
[ -n "$kernel_package" ] || { echo "test_bmc: no armmp kernel package" >&2; exit 1; }
mkdir -p "$work/debs"
for package in "$kernel_package" busybox-static; do
    ls "$work/debs/${package}_"*_armhf.deb >/dev/null 2>&1 ||
        (cd "$work/debs" && apt-get download -q "$package:armhf" >/dev/null 2>&1) || {
        echo "test_bmc: cannot download $package:armhf" >&2
        exit 1
    }
done
kernel_deb=$(ls "$work/debs/${kernel_package}_"*_armhf.deb | tail -n 1)
if [ ! -f "$work/kernel/.from" ] || [ "$(cat "$work/kernel/.from")" != "$kernel_deb" ]; then
    rm -rf "$work/kernel"
    dpkg-deb -x "$kernel_deb" "$work/kernel"
    echo "$kernel_deb" >"$work/kernel/.from"
fi
[ -x "$work/busybox/bin/busybox" ] ||
    dpkg-deb -x "$(ls "$work/debs/busybox-static_"*_armhf.deb | tail -n 1)" "$work/busybox"
version=${kernel_package#linux-image-}
modules=$work/kernel/lib/modules/$version

# A module's file and the modules it needs, from its .modinfo section (the
# package ships no modules.dep; depmod would make it from the same data).
module_file() {
    find "$modules/kernel" -name "$1.ko" -o -name "$(echo "$1" | tr _ -).ko" | head -n 1
}
module_depends() {
    $multiarch-objcopy -O binary --only-section=.modinfo "$1" /dev/stdout |
        tr '\0' '\n' | sed -n 's/^depends=//p' | tr ',' ' '
}
# load_order: module files, each after the ones it depends on, once each.
# Recursive without `local`, which POSIX sh lacks: a call's positional
# parameters are its own, and a loop's words are expanded before the calls
# inside it reuse its variable.
load_order=""
add_module() {
    set -- "$1" "$(module_file "$1")"
    [ -n "$2" ] || { echo "test_bmc: no module $1" >&2; exit 1; }
    case " $load_order " in *" $2 "*) return ;; esac
    for dependency in $(module_depends "$2"); do
        add_module "$dependency"
    done
    load_order="$load_order $2"
}
for module in i2c-aspeed i2c-dev at24 i2c-mux-pca954x bonding mdio-aspeed ftgmac100 gpio-aspeed; do
    add_module "$module"
done

# The programs, then every shared library they need, found by name in the
# armhf library folders, and the loader.
rootfs=$work/rootfs
rm -rf "$rootfs"
mkdir -p "$rootfs/bin" "$rootfs/lib/modules" "$rootfs/usr/lib" "$rootfs/tests"
cp "$work/busybox/bin/busybox" "$rootfs/bin/"
cp "$build/libkv.so.1" "$rootfs/usr/lib/"
cp "$build/tools/fru" "$rootfs/bin/"
cp "$build/tests/bmc/bmc_guest_test" "$rootfs/tests/"
cp tests/bmc/init.sh "$rootfs/init"
chmod 755 "$rootfs/init"
for file in $load_order; do
    cp "$file" "$rootfs/lib/modules/"
    basename "$file" >>"$rootfs/lib/modules/load-order"
done

library_dirs="/lib/$multiarch /usr/lib/$multiarch /usr/$multiarch/lib"
needed() {
    $multiarch-readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'
}
# The recursive call comes last in its round of the loop: it reuses the
# loop's variables.
copy_libraries() {
    for name in $(needed "$1"); do
        [ -e "$rootfs/usr/lib/$name" ] && continue
        found=""
        for dir in $library_dirs; do
            [ -e "$dir/$name" ] && { found=$dir/$name; break; }
        done
        [ -n "$found" ] || { echo "test_bmc: no $name" >&2; exit 1; }
        cp -L "$found" "$rootfs/usr/lib/$name"
        copy_libraries "$rootfs/usr/lib/$name"
    done
}
for program in "$rootfs/usr/lib/libkv.so.1" "$rootfs/bin/fru" "$rootfs/tests/bmc_guest_test"; do
    copy_libraries "$program"
done
mkdir -p "$rootfs/lib"
for dir in $library_dirs; do
    [ -e "$dir/ld-linux-armhf.so.3" ] && cp -L "$dir/ld-linux-armhf.so.3" "$rootfs/lib/" && break
done

initramfs=$work/initramfs.cpio.gz
(cd "$rootfs" && find . | cpio -o -H newc --quiet) | gzip -1 >"$initramfs"

# Serial console to a file; QEMU ends with the guest's reboot -f (with
# -no-reboot; poweroff -f would leave it running). The devices: two 24C256
# parts on bus 3, a PCA9546 on bus 4 and a part on each of its first two
# channels (QEMU names the channel buses i2c.0 to i2c.3). The EVB's device
# tree is used as shipped: enabling buses 10 and 11 takes pins that the
# third and fourth MDIO controllers need.
console=$work/console.log
dtb=$work/kernel/usr/lib/linux-image-$version/aspeed-ast2600-evb.dtb
started=$(date +%s)
set +e
timeout --kill-after=10 "$time_limit" qemu-system-arm -M ast2600-evb -nographic -no-reboot \
    -kernel "$work/kernel/boot/vmlinuz-$version" -dtb "$dtb" -initrd "$initramfs" \
    -append "console=ttyS4,115200n8 rdinit=/init quiet loglevel=4" \
    -device at24c-eeprom,bus=aspeed.i2c.bus.3,address=0x50,rom-size=32768 \
    -device at24c-eeprom,bus=aspeed.i2c.bus.3,address=0x51,rom-size=32768 \
    -device pca9546,bus=aspeed.i2c.bus.4,address=0x70,id=mux \
    -device at24c-eeprom,bus=i2c.0,address=0x50,rom-size=32768 \
    -device at24c-eeprom,bus=i2c.1,address=0x52,rom-size=32768 \
    -d guest_errors -D "$work/qemu.log" -serial mon:stdio </dev/null >"$console" 2>&1
status=$?
set -e
elapsed=$(($(date +%s) - started))
tr -d '\r' <"$console" >"$console.txt"

# One result line per test, "[ RESULT ] Suite.Test (N ms)"; the summary
# lists failed and skipped tests again without the time.
count() {
    grep -c "^\[ *$1 *\] [A-Za-z].* ([0-9]* ms)\$" "$console.txt" || true
}
passed=$(count OK)
failed=$(count FAILED)
skipped=$(count SKIPPED)
verdict=$(sed -n 's/^BMC VERDICT: //p' "$console.txt" | head -n 1)
echo "test_bmc: guest ran in ${elapsed}s (QEMU status $status): $passed passed, $failed failed, $skipped skipped, verdict '${verdict:-none}'"
if [ "$status" -eq 124 ] || [ "$status" -eq 137 ]; then
    echo "test_bmc: the guest did not finish within ${time_limit}s; console in $console.txt" >&2
    exit 1
fi
if [ "$verdict" != "pass" ] || [ "$failed" -ne 0 ] || [ "$passed" -eq 0 ]; then
    sed -n '/^init: tests/,$p' "$console.txt" >&2
    echo "test_bmc: failed; console in $console.txt" >&2
    exit 1
fi
