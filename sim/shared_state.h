// SPDX-License-Identifier: Apache-2.0
// The board's state as one fixed-layout record in a file mapped MAP_SHARED by
// every process of a test or a kvsim run. Plain data only: no pointers.
#pragma once

#include "sim.h"

#include <pthread.h>

#include <cstddef>
#include <cstdint>

namespace kv::sim::detail
{

inline constexpr int max_buses = 64;
inline constexpr int max_devices = 64;
inline constexpr std::size_t memory_pool_bytes = 1 << 20;
inline constexpr int mux_channels = 4;
inline constexpr int max_faults = 32;
inline constexpr int log_capacity = 4096;
inline constexpr int sleep_capacity = 1024;

struct BusSlot
{
    int32_t number;
    uint32_t functions; // I2C_FUNC_* bits offered
    int32_t mux;        // device index of the parent mux, -1 for a root bus
    int32_t channel;    // channel of that mux, from 0
};

struct DeviceSlot
{
    DeviceType type;
    int32_t bus;
    uint8_t address;
    uint8_t address_bytes;
    uint8_t mux_control;
    uint32_t size;          // bytes of memory
    uint32_t memory_offset; // into State::memory
    uint32_t pointer;       // register pointer or memory address counter
    uint64_t write_cycles;
    int32_t channels[mux_channels];
};

enum class FaultKind : uint8_t
{
    none,
    address,  // every transfer to bus/address
    transfer, // the transfer numbered `at`
};

struct FaultSlot
{
    FaultKind kind;
    int32_t bus;
    uint16_t address;
    int32_t error;
    uint64_t at;
};

struct LogRecord
{
    int32_t bus;
    uint16_t address;
    uint8_t read;
    uint8_t repeated_start;
    int32_t error;
    uint32_t length;
    uint32_t logged; // bytes held in `data`
    uint8_t data[max_logged_bytes];
};

struct State
{
    uint64_t magic;
    pthread_mutex_t lock; // robust and process-shared
    int32_t bus_count;
    int32_t device_count;
    BusSlot buses[max_buses];
    DeviceSlot devices[max_devices];
    uint8_t memory[memory_pool_bytes];
    FaultSlot faults[max_faults];
    uint64_t transfers; // transfers attempted so far
    uint64_t log_total; // records ever written
    uint64_t log_first; // first record still wanted (after a clear)
    LogRecord log[log_capacity];
    uint8_t capture_sleeps;
    uint64_t sleep_total;
    uint64_t sleep_first;
    int64_t sleeps[sleep_capacity];
};

// The state of the loaded board, or nullptr when none is loaded. Checks that
// the mapping is still the file at the state path (a new board, or a fresh
// sandbox, replaces the file), so call it when a bus is opened and from the
// API, and use attached_state() on the paths of an open descriptor.
State* current_state();
State* attached_state();

// Writes a fresh state for `board` to the state path and attaches to it.
void publish_state(const Board& board);

// Holds the state's lock; recovers it when its holder died.
class StateLock
{
  public:
    explicit StateLock(State& state);
    ~StateLock();
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;

  private:
    State& state_;
};

} // namespace kv::sim::detail
