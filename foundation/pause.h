// SPDX-License-Identifier: Apache-2.0
// Real-time pauses of the retry and pacing policies (CPLD retries, EEPROM
// write cycles, FRU chunks). One place, so every pause is a plain nanosleep.
#pragma once

#include <cerrno>
#include <ctime>

namespace kv::detail
{

inline void pause_microseconds(long microseconds)
{
    timespec left{microseconds / 1000000, (microseconds % 1000000) * 1000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR)
    {}
}

} // namespace kv::detail
