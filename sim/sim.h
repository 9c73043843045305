// SPDX-License-Identifier: Apache-2.0
// The simulated board: I2C buses with CPLDs, EEPROMs and PCA9546
// multiplexers behind /dev/i2c-N, for tests (linked in) and for kvsim
// (preloaded into any program).
//
// The board's state (device memory, multiplexer registers, faults, the wire
// log, captured sleeps) lives in one shared file, $KVSIM_STATE or
// /run/kvsim/state, so a test, its forked children and every program of one
// kvsim run see the same board.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace kv::sim
{

inline constexpr const char* state_path_variable = "KVSIM_STATE";
inline constexpr const char* default_state_path = "/run/kvsim/state";

enum class DeviceType
{
    cpld,    // 256 registers behind a 1-byte register pointer
    eeprom,  // 24-series serial EEPROM
    pca9546, // 4-channel multiplexer
};

struct Device
{
    DeviceType type = DeviceType::cpld;
    int bus = 0;
    uint8_t address = 0;
    // CPLD: 256 registers; EEPROM: the whole part (its size); mux: empty.
    std::vector<uint8_t> memory;
    // EEPROM memory address width: 1 (24C02-like) or 2 (24C64-like).
    int address_bytes = 1;
    // PCA9546: the bus number of each of its 4 channels.
    std::vector<int> channels;
};

struct Bus
{
    int number = 0;
    // I2C_FUNC_* bits this bus does not offer; a multiplexer channel also
    // lacks what its parent bus lacks.
    unsigned long removed_functions = 0;
};

// A FRU device as the platform daemon lists it in the FRU device table of
// the platform segment (kvsim fills that table).
struct FruDevice
{
    int id = 0;
    int bus = 0; // for a device behind a multiplexer: the multiplexer's bus
    uint8_t address = 0;
    unsigned size = 0;
    uint8_t method = 2; // 2 raw I2C, 3 the EEPROM driver's sysfs file
    uint8_t offset_width = 1;
    unsigned base = 0;
    bool behind_mux = false;
    uint8_t mux_address = 0;
    uint8_t mux_channel = 0; // counted from 0
    uint8_t state = 0;
};

// A board file, read and checked. Buses listed here are the root buses and
// any multiplexer channel that needs its own settings.
struct Board
{
    std::vector<Bus> buses;
    std::vector<Device> devices;
    std::vector<FruDevice> fru_devices;
};

// Reads a board file (JSON); throws std::runtime_error naming the problem.
Board read_board(const std::string& path);

// Makes `board` the simulated board, with an empty wire log, no faults and
// sleep capture off. Another process still on an earlier board moves to this
// one when it next opens a bus or calls this interface.
void load_board(const Board& board);
void load_board(const std::string& path);

struct BusInfo
{
    int number = 0;
    // For a multiplexer channel: the parent bus, the multiplexer's address and
    // the channel counted from 1. Otherwise parent is -1 and channel 0.
    int parent = -1;
    uint8_t mux_address = 0;
    int channel = 0;
};

// The buses of the loaded board, in increasing number.
std::vector<BusInfo> buses();

// A descriptor of this process that is open on an I2C bus.
struct OpenBus
{
    int fd = 0;
    int bus = 0;
};

// The descriptors this process holds open on a simulated bus or on a real
// /dev/i2c-N, in increasing order. They are found through /proc/self/fd, so
// a descriptor counts as long as it is open, however it was made (dup
// included) or closed. Throws std::runtime_error when /proc/self/fd cannot
// be read.
std::vector<OpenBus> open_buses();

// Inspecting and changing devices. Each throws std::out_of_range when there
// is no such device (or no board) and std::invalid_argument when the device
// has no such property.
std::vector<uint8_t> device_memory(int bus, int address);
void set_device_memory(int bus, int address, std::size_t offset,
                       const std::vector<uint8_t>& bytes);
// Write transactions that carried data into an EEPROM.
uint64_t write_cycles(int bus, int address);
uint8_t mux_control(int bus, int address);

// One message on the wire: one message of an I2C_RDWR request or of an
// emulated SMBus transaction, or one plain read() or write().
struct Transfer
{
    int bus = 0; // the N of the /dev/i2c-N the caller used
    uint16_t address = 0;
    bool read = false;
    // Follows the previous message of the same request after a repeated
    // start (no stop in between).
    bool repeated_start = false;
    int error = 0; // 0 when done, else the errno the transfer failed with
    // Bytes asked for (read) or sent (write).
    std::size_t length = 0;
    // The bytes written, or read back (none for a failed read); at most the
    // first `max_logged_bytes`.
    std::vector<uint8_t> bytes;

    bool operator==(const Transfer&) const = default;
};

inline constexpr std::size_t max_logged_bytes = 512;

// The most recent transfers (a few thousand), oldest first.
std::vector<Transfer> wire_log();
void clear_wire_log();
std::ostream& operator<<(std::ostream& out, const Transfer& transfer);

// Faults. Every transfer to `address` on `bus` (the device's own bus, or the
// bus it is reached through) fails with `error`: ENXIO makes the address NAK,
// EIO is a bus error.
void fail_address(int bus, int address, int error);
// The n-th transfer from now (1: the next one) fails with `error`.
void fail_transfer(unsigned n, int error);
void clear_faults();

// While on, sleep, usleep, nanosleep and clock_nanosleep return at once and
// record the pause asked for, in microseconds.
void capture_sleeps(bool on);
std::vector<long long> recorded_sleeps();
void clear_sleeps();

} // namespace kv::sim
