#!/bin/busybox sh
# SPDX-License-Identifier: Apache-2.0
# /init of the emulated BMC: loads the drivers, instantiates the I2C devices
# the way a platform would (new_device), runs the guest tests and ends the
# machine. The devices themselves come from QEMU's -device options:
#   bus 3: EEPROMs at 0x50 (no driver) and 0x51 (at24)
#   bus 4: a PCA9546 at 0x70; channel 0: EEPROM 0x50 (at24),
#          channel 1: EEPROM 0x52 (no driver)
/bin/busybox --install -s /bin
export PATH=/bin LD_LIBRARY_PATH=/usr/lib
mkdir -p /proc /sys /dev /tmp /run /var /etc
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

echo 24c256 0x51 >/sys/bus/i2c/devices/i2c-3/new_device
echo pca9546 0x70 >/sys/bus/i2c/devices/i2c-4/new_device
echo 24c256 0x50 >/sys/bus/i2c/devices/4-0070/channel-0/new_device
# The kernel deselects the channels after each transfer, as BMC device trees
# ask with i2c-mux-idle-disconnect; otherwise it trusts its cached selection
# and a channel switched behind its back sends it to the wrong channel.
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
reboot -f
