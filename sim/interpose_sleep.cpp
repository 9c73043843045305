// SPDX-License-Identifier: Apache-2.0
// sleep, usleep, nanosleep and clock_nanosleep: recorded and skipped while
// the board captures sleeps, passed on otherwise.
#include "next_libc.h"
#include "shared_state.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace
{

using namespace kv::sim::detail;

constexpr long nanoseconds_per_second = 1'000'000'000;

bool valid(const timespec* pause)
{
    return pause != nullptr && pause->tv_sec >= 0 && pause->tv_nsec >= 0 &&
           pause->tv_nsec < nanoseconds_per_second;
}

long long microseconds(const timespec& pause)
{
    return pause.tv_sec * 1'000'000LL + pause.tv_nsec / 1000;
}

// Records the pause and returns true when sleeps are being captured.
bool captured(long long pause_microseconds)
{
    State* state = current_state();
    if (state == nullptr)
    {
        return false;
    }
    StateLock hold(*state);
    if (state->capture_sleeps == 0)
    {
        return false;
    }
    state->sleeps[state->sleep_total++ % sleep_capacity] = pause_microseconds;
    return true;
}

bool captured(const timespec& pause)
{
    return captured(microseconds(pause));
}

// The pause until an absolute time on `clock`, never negative.
timespec until(clockid_t clock, const timespec& deadline)
{
    timespec now{};
    clock_gettime(clock, &now);
    timespec left{deadline.tv_sec - now.tv_sec, deadline.tv_nsec - now.tv_nsec};
    if (left.tv_nsec < 0)
    {
        left.tv_nsec += nanoseconds_per_second;
        --left.tv_sec;
    }
    return left.tv_sec < 0 ? timespec{} : left;
}

} // namespace

extern "C"
{
unsigned sleep(unsigned seconds)
{
    return captured(seconds * 1'000'000LL) ? 0 : kv::sim::next::sleep(seconds);
}

int usleep(useconds_t pause)
{
    return captured(static_cast<long long>(pause))
               ? 0
               : kv::sim::next::usleep(pause);
}

int nanosleep(const timespec* pause, timespec* remaining)
{
    if (valid(pause) && captured(*pause))
    {
        return 0;
    }
    return kv::sim::next::nanosleep(pause, remaining);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* pause,
                    timespec* remaining)
{
    if (valid(pause))
    {
        const timespec wait =
            (flags & TIMER_ABSTIME) != 0 ? until(clock, *pause) : *pause;
        if (captured(wait))
        {
            return 0;
        }
    }
    return kv::sim::next::clock_nanosleep(clock, flags, pause, remaining);
}

} // extern "C"
