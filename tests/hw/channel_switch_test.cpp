// SPDX-License-Identifier: Apache-2.0
// Multiplexer channels taken on request, guarded by a flag byte in the
// platform segment. The segment is cached per process and each test has its
// own IPC namespace, so the requests run in child processes.
#include "hw_test.h"

#include <libkv/ipc.h>

#include <unistd.h>

#include <functional>

using namespace kv::hw::test;
namespace
{

using ChannelSwitch = SimBoard;

// Runs `scenario` in a child process and returns the values it reports.
std::vector<int> in_child(const std::function<std::vector<int>()>& scenario)
{
    int pipe_fds[2];
    EXPECT_EQ(0, ::pipe(pipe_fds));
    EXPECT_EQ(0, kv::test::exit_status_of([&] {
                  const std::vector<int> results = scenario();
                  const size_t size = results.size() * sizeof(int);
                  return ::write(pipe_fds[1], results.data(), size) ==
                                 ssize_t(size)
                             ? 0
                             : 1;
              }));
    ::close(pipe_fds[1]);
    std::vector<int> results(64);
    const ssize_t got = ::read(pipe_fds[0], results.data(), 64 * sizeof(int));
    ::close(pipe_fds[0]);
    results.resize(got > 0 ? size_t(got) / sizeof(int) : 0);
    return results;
}

// The flag of (bus 13, multiplexer 0x70).
int flag()
{
    return static_cast<uint8_t*>(get_shm_address())[217580 + 13 * 127 + 0x70];
}

int request(uint8_t channel, int enable)
{
    BusHandle bus(13);
    return switch_channel_request(bus.fd(), 13, channel, 0x70, enable);
}

TEST_F(ChannelSwitch, SecondRequesterIsBusyUntilTheChannelIsReleased)
{
    EXPECT_THAT(in_child([] {
                    return std::vector{request(1, 1), flag(), request(1, 1)};
                }),
                ElementsAre(0x00, 1, 0xC0));
    EXPECT_THAT(wire_log(), ElementsAre(sent(13, 0x70, {0x00, 0x02})));
    EXPECT_EQ(0x02, mux_control(13, 0x70));

    // Another process sees the flag; releasing sends nothing.
    clear_wire_log();
    EXPECT_THAT(in_child([] {
                    return std::vector{request(2, 1), request(2, 0),
                                       flag(),        request(2, 0),
                                       request(3, 1), request(0, 0),
                                       request(8, 1)};
                }),
                ElementsAre(0xC0, 0x00, 0, 0x00, 0x00, 0x00, 0x00));
    EXPECT_THAT(wire_log(), ElementsAre(sent(13, 0x70, {0x00, 0x08}),
                                        sent(13, 0x70, {0x00, 0x00})));
}

TEST_F(ChannelSwitch, MuxThatDoesNotAnswerLeavesTheChannelFree)
{
    const auto take = [] { return std::vector{request(0, 1), flag()}; };
    fail_address(13, 0x70, ENXIO);
    EXPECT_THAT(in_child(take), ElementsAre(0xFF, 0));
    clear_faults();
    EXPECT_THAT(in_child(take), ElementsAre(0x00, 1));
    EXPECT_EQ(0x01, mux_control(13, 0x70));
}

} // namespace
