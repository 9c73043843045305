# SPDX-License-Identifier: Apache-2.0
# Sourced by the stages that boot the emulated AST2600 BMC (test_bmc.sh,
# test_powercut.sh): Debian's armhf kernel and busybox-static, a module list
# in load order, an initramfs of busybox, the modules, the armhf programs and
# the shared libraries they need, and the QEMU command line. Before sourcing,
# set `work` (the stage's folder under build-armhf).
build=build-armhf
multiarch=arm-linux-gnueabihf

# The kernel package's name carries its ABI version, which changes with
# updates: resolve the metapackage's dependency now.
kernel_package=$(apt-cache depends linux-image-armmp:armhf |
    sed -n 's/^ *Depends: \(linux-image-[0-9].*-armmp\).*/\1/p' | head -n 1)
[ -n "$kernel_package" ] || { echo "bmc_guest: no armmp kernel package" >&2; exit 1; }
# fetch PACKAGE...: Debian's armhf packages into $work/debs, once; deb
# PACKAGE: the file.
fetch() {
    mkdir -p "$work/debs"
    for package in "$@"; do
        ls "$work/debs/${package}_"*_armhf.deb >/dev/null 2>&1 ||
            (cd "$work/debs" && apt-get download -q "$package:armhf" >/dev/null 2>&1) || {
            echo "bmc_guest: cannot download $package:armhf" >&2
            exit 1
        }
    done
}
deb() {
    ls "$work/debs/${1}_"*_armhf.deb | tail -n 1
}
fetch "$kernel_package" busybox-static
kernel_deb=$(deb "$kernel_package")
if [ ! -f "$work/kernel/.from" ] || [ "$(cat "$work/kernel/.from")" != "$kernel_deb" ]; then
    rm -rf "$work/kernel"
    dpkg-deb -x "$kernel_deb" "$work/kernel"
    echo "$kernel_deb" >"$work/kernel/.from"
fi
[ -x "$work/busybox/bin/busybox" ] || dpkg-deb -x "$(deb busybox-static)" "$work/busybox"
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
    [ -n "$2" ] || { echo "bmc_guest: no module $1" >&2; exit 1; }
    case " $load_order " in *" $2 "*) return ;; esac
    for dependency in $(module_depends "$2"); do
        add_module "$dependency"
    done
    load_order="$load_order $2"
}

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
        [ -n "$found" ] || { echo "bmc_guest: no $name" >&2; exit 1; }
        cp -L "$found" "$rootfs/usr/lib/$name"
        copy_libraries "$rootfs/usr/lib/$name"
    done
}

# make_initramfs PROGRAM...: $work/initramfs.cpio.gz with tests/bmc/init.sh
# as /init, the modules of load_order, libkv and each PROGRAM (a file and the
# folder it goes to, "build-armhf/tools/fru:/bin") with the libraries they
# need, found in library_dirs, and the loader.
make_initramfs() {
    rootfs=$work/rootfs
    rm -rf "$rootfs"
    mkdir -p "$rootfs/bin" "$rootfs/lib/modules" "$rootfs/usr/lib" "$rootfs/tests"
    cp "$work/busybox/bin/busybox" "$rootfs/bin/"
    cp tests/bmc/init.sh "$rootfs/init"
    chmod 755 "$rootfs/init"
    for file in $load_order; do
        cp "$file" "$rootfs/lib/modules/"
        basename "$file" >>"$rootfs/lib/modules/load-order"
    done
    cp "$build/libkv.so.1" "$rootfs/usr/lib/"
    copy_libraries "$rootfs/usr/lib/libkv.so.1"
    for program in "$@"; do
        cp "${program%%:*}" "$rootfs${program#*:}/"
        copy_libraries "$rootfs${program#*:}/$(basename "${program%%:*}")"
    done
    for dir in $library_dirs; do
        [ -e "$dir/ld-linux-armhf.so.3" ] && cp -L "$dir/ld-linux-armhf.so.3" "$rootfs/lib/" && break
    done
    (cd "$rootfs" && find . | cpio -o -H newc --quiet) | gzip -1 >"$work/initramfs.cpio.gz"
}

# guest_qemu CONSOLE KERNEL_ARGUMENTS QEMU_ARGUMENT...: boots the EVB with
# the serial console to the file CONSOLE, within time_limit seconds when
# that is set. It becomes QEMU: call it in a subshell. QEMU ends with the
# guest's reboot -f (with -no-reboot; poweroff -f would leave it running).
# The EVB's device tree is used as shipped.
guest_qemu() {
    console=$1 arguments=$2
    shift 2
    exec ${time_limit:+timeout --kill-after=10 "$time_limit"} \
        qemu-system-arm -M ast2600-evb -nographic -no-reboot \
        -kernel "$work/kernel/boot/vmlinuz-$version" \
        -dtb "$work/kernel/usr/lib/linux-image-$version/aspeed-ast2600-evb.dtb" \
        -initrd "$work/initramfs.cpio.gz" \
        -append "console=ttyS4,115200n8 rdinit=/init quiet loglevel=4 $arguments" \
        "$@" -d guest_errors -D "$work/qemu.log" -serial mon:stdio </dev/null >"$console" 2>&1
}
