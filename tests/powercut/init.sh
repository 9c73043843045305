#!/bin/busybox sh
# SPDX-License-Identifier: Apache-2.0
# /init of the emulated BMC in the power-cut stage: mounts the eMMC (ext4)
# and the FMC flash's read-write partition (jffs2), then runs one
# powercut_guest per file system until the host cuts the power. The kernel
# command line says which boot this is:
#   kvpowercut=loop     check both, then rewrite both until the cut
#   kvpowercut=control  check, then the in-place writer on ext4 alone
#   kvpowercut=final    check both, unmount both cleanly, end the machine
/bin/busybox --install -s /bin
export PATH=/bin LD_LIBRARY_PATH=/usr/lib
mkdir -p /proc /sys /dev /tmp /run /var /mnt/ext4 /mnt/jffs2
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mount -t tmpfs tmpfs /tmp
mount -t tmpfs tmpfs /run
ln -s /run /var/run
mkdir -p /var/run/obmcinfo

while read -r module; do
    insmod "/lib/modules/$module" || echo "init: cannot load $module"
done </lib/modules/load-order

mode=$(sed -n 's/.*kvpowercut=\([a-z]*\).*/\1/p' /proc/cmdline)

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
mount -t ext4 "$emmc" /mnt/ext4 || echo "POWERCUT FAIL: cannot mount the eMMC ($emmc)"
mount -t jffs2 mtd4 /mnt/jffs2 || echo "POWERCUT FAIL: cannot mount mtd4"

cd /tmp
case $mode in
control)
    /tests/powercut_guest /mnt/ext4 ext4 control &
    ;;
loop)
    /tests/powercut_guest /mnt/ext4 ext4 &
    /tests/powercut_guest /mnt/jffs2 jffs2 &
    ;;
final)
    /tests/powercut_guest /mnt/ext4 ext4 check
    /tests/powercut_guest /mnt/jffs2 jffs2 check
    umount /mnt/ext4 && umount /mnt/jffs2 && echo "POWERCUT CLEAN UNMOUNT"
    reboot -f
    ;;
esac
wait
echo "POWERCUT FAIL: a writer stopped"
sleep 1000
