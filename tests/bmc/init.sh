#!/bin/busybox sh
# SPDX-License-Identifier: Apache-2.0
# /init of the emulated BMC: loads the drivers, then runs what the kernel
# command line asks for.
# - Nothing: the guest tests of scripts/test_bmc.sh. The I2C devices are
#   instantiated the way a platform would (new_device); the devices
#   themselves come from QEMU's -device options:
#     bus 3: EEPROMs at 0x50 (no driver) and 0x51 (at24)
#     bus 4: a PCA9546 at 0x70; channel 0: EEPROM 0x50 (at24),
#            channel 1: EEPROM 0x52 (no driver)
# - kvpowercut=MODE: the power-cut writers of scripts/test_powercut.sh on the
#   eMMC (ext4) and the FMC flash's read-write partition (jffs2):
#     loop     check both, then rewrite both until the host cuts the power
#     control  check, then the in-place writer on ext4 alone
#     final    check both, unmount both cleanly and end the machine
/bin/busybox --install -s /bin
export PATH=/bin LD_LIBRARY_PATH=/usr/lib
mkdir -p /proc /sys /dev /tmp /run /var /etc /mnt/ext4 /mnt/jffs2
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mount -t tmpfs tmpfs /tmp
mount -t tmpfs tmpfs /run
ln -s /run /var/run
mkdir -p /var/run/obmcinfo

while read -r module; do
    case $module in
    bonding.ko) insmod "/lib/modules/$module" max_bonds=0 ;;
    *) insmod "/lib/modules/$module" ;;
    esac || echo "init: cannot load $module"
done </lib/modules/load-order

guest_tests() {
    echo 24c256 0x51 >/sys/bus/i2c/devices/i2c-3/new_device
    echo pca9546 0x70 >/sys/bus/i2c/devices/i2c-4/new_device
    echo 24c256 0x50 >/sys/bus/i2c/devices/4-0070/channel-0/new_device
    # The kernel deselects the channels after each transfer, as BMC device
    # trees ask with i2c-mux-idle-disconnect; otherwise it trusts its cached
    # selection and a channel switched behind its back sends it to the
    # wrong channel.
    echo -2 >/sys/bus/i2c/devices/4-0070/idle_state

    echo "init: kernel log"
    dmesg | grep -v -e 'missing clock-frequency' | tail -n 60
    echo "init: tests"
    cd /tmp
    if /tests/bmc_guest_test --gtest_color=no; then
        echo "BMC VERDICT: pass"
    else
        echo "BMC VERDICT: fail"
    fi
}

powercut() {
    # The eMMC controller's card; its block device's name changes from boot
    # to boot, as the three controllers probe in any order.
    emmc=""
    for try in 1 2 3 4 5 6 7 8 9 10; do
        for block in /sys/block/mmcblk*; do
            case $(readlink -f "$block/device") in
            *1e750100.sdhci*) emmc=/dev/${block##*/} ;;
            esac
        done
        [ -n "$emmc" ] && break
        sleep 0.5
    done
    # A journal commit block torn by the cut stops the mount until e2fsck
    # has dropped that transaction, whose sync had not returned yet: the
    # BMC's boot runs e2fsck -p before it mounts.
    if ! mount -t ext4 "$emmc" /mnt/ext4 2>/dev/null; then
        echo "init: ext4 needs e2fsck"
        e2fsck -p "$emmc"
        [ $? -lt 4 ] && mount -t ext4 "$emmc" /mnt/ext4 ||
            echo "POWERCUT FAIL: cannot mount the eMMC ($emmc)"
    fi
    mount -t jffs2 mtd4 /mnt/jffs2 || echo "POWERCUT FAIL: cannot mount mtd4"
    # Nothing is written to a file system that did not mount.
    guest() {
        grep -q " /mnt/$1 " /proc/mounts && /tests/powercut_guest "/mnt/$1" "$@"
    }
    cd /tmp
    case $1 in
    control) guest ext4 control ;;
    loop)
        guest ext4 &
        guest jffs2
        ;;
    final)
        guest ext4 check
        guest jffs2 check
        umount /mnt/ext4 && umount /mnt/jffs2 && echo "POWERCUT CLEAN UNMOUNT"
        return
        ;;
    esac
    wait
    echo "POWERCUT FAIL: a writer stopped"
    sleep 1000
}

mode=$(sed -n 's/.*kvpowercut=\([a-z]*\).*/\1/p' /proc/cmdline)
if [ -n "$mode" ]; then
    powercut "$mode"
else
    guest_tests
fi
reboot -f
