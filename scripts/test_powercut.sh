#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Power cuts on the emulated AST2600 BMC. The guest keeps an ext4 file
# system on its eMMC and a jffs2 one on the FMC flash's read-write partition
# (both disk images live on between boots), and rewrites files there with
# the library's durable writers (tests/powercut/powercut_guest.cpp),
# printing each generation once the call has returned. The power is cut at
# a random moment (kill -9 of QEMU); the next boot reads every file back
# with the library's readers before it writes again, and every file must
# hold the generation last printed or the next one. One cut also checks the
# check: an in-place writer without a sync must be seen losing data. After
# the last cut a clean boot checks and unmounts both, and e2fsck checks the
# ext4 image on the host.
#   KV_POWERCUT_CYCLES  cuts, half on each file system (default 12)
#   KV_POWERCUT_SEED    the seed of the cut times, to repeat a run
set -eu
cd "$(dirname "$0")/.."

work=build-armhf/powercut
# Both file systems are cut at once: a boot is two cuts.
boots=$(((${KV_POWERCUT_CYCLES:-12} + 1) / 2))
cycles=$((boots * 2))
seed=${KV_POWERCUT_SEED:-$(od -An -N4 -tu4 /dev/urandom | tr -d ' ')}

sh scripts/setup.sh bmc powercut
sh scripts/armhf_setup.sh
meson compile -C build-armhf -j 2 kv tests/powercut/powercut_guest
. scripts/bmc_guest.sh

# ofpart before spi-nor, or the flash's partitions do not appear.
for module in sdhci sdhci-pltfm sdhci-of-aspeed jbd2 mbcache crc16 crc32c_generic ext4 \
    ofpart spi-nor spi-aspeed-smc jffs2; do
    add_module "$module"
done
# A cut can tear the journal's commit block across the card's 512-byte
# sectors, and ext4 then refuses to mount until e2fsck has run: the guest
# does what the BMC's boot does, e2fsck -p. Debian's armhf e2fsck, unpacked.
fetch e2fsprogs libext2fs2 libcom-err2 libblkid1 libuuid1
for package in e2fsprogs libext2fs2 libcom-err2 libblkid1 libuuid1; do
    dpkg-deb -x "$(deb "$package")" "$work/e2fsprogs"
done
library_dirs="$library_dirs $work/e2fsprogs/lib/$multiarch $work/e2fsprogs/usr/lib/$multiarch"
make_initramfs build-armhf/tests/powercut/powercut_guest:/tests "$work/e2fsprogs/sbin/e2fsck:/bin"

emmc=$work/emmc.img
fmc=$work/fmc.img
rm -f "$emmc" "$fmc" "$work"/console-*
truncate -s 64M "$emmc"
mkfs.ext4 -q "$emmc"
# An erased NOR flash reads as 0xFF.
tr '\0' '\377' </dev/zero | head -c 64M >"$fmc"

echo "test_powercut: $cycles cuts, seed $seed (KV_POWERCUT_SEED=$seed repeats them)"
state=$work/floor
: >"$state"
failed=0

# boot N MODE: boots the guest, and unless MODE is final, cuts its power
# 1 to 8 s after its writers started looping. Then compares what the boot
# found with what the earlier boots printed ($state: "fs file generation",
# the least generation each file may hold now).
boot() {
    console=$work/console-$1.log
    started=$(date +%s)
    # A guest that hangs in the last boot, with no cut to end it, is stopped.
    (if [ "$2" = final ]; then time_limit=120; fi
    guest_qemu "$console" "vmalloc=640M kvpowercut=$2" \
        -drive "file=$emmc,format=raw,if=sd,index=2" \
        -drive "file=$fmc,format=raw,if=mtd,index=0") &
    qemu=$!
    if [ "$2" = final ]; then
        wait "$qemu" || true
    else
        loops=$([ "$2" = control ] && echo 1 || echo 2)
        until [ "$(grep -c ' loop - -' "$console" || true)" -ge "$loops" ]; do
            if [ $(($(date +%s) - started)) -gt 120 ] || ! kill -0 "$qemu" 2>/dev/null; then
                kill -9 "$qemu" 2>/dev/null || true
                echo "test_powercut: boot $1 never started its writers; console in $console" >&2
                exit 1
            fi
            sleep 0.2
        done
        sleep "$(awk -v seed="$seed" -v boot="$1" \
            'BEGIN { srand(seed + boot); printf "%.2f", 1 + 7 * rand() }')"
        kill -9 "$qemu"
        # The shell's own word on the killed job is not news here.
        wait "$qemu" 2>/dev/null || true
    fi
    tr -d '\r' <"$console" >"$console.txt"
    if ! awk -v boot="$1" -v state="$state.new" '
        FILENAME == ARGV[1] { floor[$1 " " $2] = $3; next }
        /^POWERCUT FAIL/ { print "boot " boot ": " $0; bad = 1 }
        $3 == "control" && ($2 == "found" || $2 == "bad") {
            if (boot == 1) control = $2 == "bad" ? $4 : $4 + 0
            next
        }
        $2 == "bad" { print "boot " boot ": " $1 " " $3 " is bad: " $4 " " $5 " " $6; bad = 1 }
        $2 == "found" && NF == 4 {
            key = $1 " " $3
            least = floor[key] + 0
            if ($4 < least || $4 > least + 1) {
                print "boot " boot ": " key " holds generation " $4 ", not " least " or " least + 1
                bad = 1
            }
            if ($4 > least) floor[key] = $4
        }
        $2 == "wrote" && NF == 4 { floor[$1 " " $3] = $4 }
        END {
            if (boot == 1) {
                printed = floor["ext4 control"] + 0
                lost = control == "empty" || control < printed
                print "test_powercut: in-place writer without a sync: printed " printed \
                    ", found " control (lost ? " (lost: the check sees a loss)" : " (nothing lost: the check is blind)")
                if (!lost) bad = 1
            }
            for (key in floor) print key, floor[key] > state
            exit bad
        }' "$state" "$console.txt"; then
        failed=1
    fi
    mv "$state.new" "$state"
}

boot 0 control
n=1
while [ "$n" -le "$boots" ]; do
    boot "$n" loop
    n=$((n + 1))
done
boot "$n" final
grep -q "POWERCUT CLEAN UNMOUNT" "$work/console-$n.log.txt" || {
    echo "test_powercut: the last boot did not unmount cleanly" >&2
    failed=1
}
e2fsck -fn "$emmc" >"$work/e2fsck.log" 2>&1 || {
    cat "$work/e2fsck.log" >&2
    failed=1
}
[ "$failed" -eq 0 ] || { echo "test_powercut: failed; consoles in $work" >&2; exit 1; }
fscked=$(grep -l "^init: ext4 needs e2fsck" "$work"/console-*.log.txt | wc -l)
echo "test_powercut: $cycles cuts, every file as last reported ($fscked boots ran e2fsck -p first); seed $seed"
