// SPDX-License-Identifier: Apache-2.0
// The emulated BMC as the guest tests see it: what QEMU attached and what
// the guest's /init instantiated (tests/bmc/init.sh), and small readers of
// what the kernel shows in sysfs.
#pragma once

#include "test_helpers.h"

#include <libkv/fru.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kv::bmc
{

// Bus 3: an EEPROM without a driver and one bound to at24.
inline constexpr int kPlainBus = 3;
inline constexpr uint8_t kBareEeprom = 0x50;
inline constexpr uint8_t kDriverEeprom = 0x51;
inline constexpr uint8_t kNobody = 0x53;
// Bus 4: a PCA9546 bound to i2c-mux-pca954x; channel 0 holds an EEPROM bound
// to at24, channel 1 one without a driver.
inline constexpr int kMuxBus = 4;
inline constexpr uint8_t kMux = 0x70;
inline constexpr uint8_t kChannel0Eeprom = 0x50;
inline constexpr uint8_t kChannel1Eeprom = 0x52;
// The QEMU parts are 24C256s: 32 KiB behind a 2-byte memory address.
inline constexpr int kEepromBytes = 32768;

// The first line of a sysfs or proc file, without its line end; "" when it
// cannot be read.
std::string first_line(const std::string& path);

// Writes `text` to a sysfs file in one write: whether the kernel took it.
bool write_sysfs(const std::string& path, const std::string& text);

// The kernel's name of an I2C client: "3-0051".
std::string client_name(int bus, uint8_t address);

// The adapter number the kernel gave to multiplexer channel `channel`
// (from 0) of the PCA9546, read from its "channel-N" link; -1 if none.
int kernel_channel_bus(int channel);

// Reads or writes the at24 driver's eeprom file of `client` ("3-0051").
std::vector<uint8_t> read_driver_eeprom(const std::string& client, long offset,
                                        size_t count);
bool write_driver_eeprom(const std::string& client, long offset,
                         const std::vector<uint8_t>& bytes);

// Puts `device` into entry `id` of the FRU device table of the platform
// segment, as the platform daemon does on a BMC.
void publish_fru_device(int id, const kv_fru_device& device);

// A FRU device descriptor: `method` KV_FRU_ACCESS_I2C or _SYSFS, the size
// and a base offset inside the part; behind the PCA9546 when `channel` >= 0.
kv_fru_device fru_device(uint8_t method, int bus, uint8_t address,
                         unsigned size, unsigned base, int channel = -1);

// Whether the PCA9546 takes the two-byte channel selection the library
// sends (0x00, then the mask) as the part does, keeping the last byte.
// QEMU 7.2's model drops any write of more than one byte.
bool mux_takes_two_byte_selection();

// `count` bytes that differ from each other and from a blank part.
std::vector<uint8_t> pattern(size_t count, uint8_t seed);

} // namespace kv::bmc
