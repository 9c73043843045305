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

work=build-armhf/bmc
time_limit=${KV_BMC_TIME_LIMIT:-300}

sh scripts/setup.sh bmc
sh scripts/armhf_setup.sh
meson compile -C build-armhf -j 2 kv fru bmc_guest_test
. scripts/bmc_guest.sh

for module in i2c-aspeed i2c-dev at24 i2c-mux-pca954x bonding mdio-aspeed ftgmac100 gpio-aspeed; do
    add_module "$module"
done
make_initramfs build-armhf/tools/fru:/bin build-armhf/tests/bmc/bmc_guest_test:/tests

# The devices: two 24C256 parts on bus 3, a PCA9546 on bus 4 and a part on
# each of its first two channels (QEMU names the channel buses i2c.0 to
# i2c.3). Enabling buses 10 and 11 in the device tree would take pins that
# the third and fourth MDIO controllers need.
console=$work/console.log
started=$(date +%s)
set +e
(guest_qemu "$console" "" \
    -device at24c-eeprom,bus=aspeed.i2c.bus.3,address=0x50,rom-size=32768 \
    -device at24c-eeprom,bus=aspeed.i2c.bus.3,address=0x51,rom-size=32768 \
    -device pca9546,bus=aspeed.i2c.bus.4,address=0x70,id=mux \
    -device at24c-eeprom,bus=i2c.0,address=0x50,rom-size=32768 \
    -device at24c-eeprom,bus=i2c.1,address=0x52,rom-size=32768)
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
