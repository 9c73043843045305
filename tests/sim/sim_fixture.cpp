// SPDX-License-Identifier: Apache-2.0
#include "sim_fixture.h"

#include "test_helpers.h"

namespace kv::sim::test
{

void expect_no_bus_left_open()
{
    for (const OpenBus& left : open_buses())
    {
        ADD_FAILURE() << "descriptor " << left.fd << " on /dev/i2c-" << left.bus
                      << " was left open";
        ::close(left.fd);
    }
}

std::string write_board(std::string_view json, const std::string& name)
{
    kv::test::write_text("/tmp/" + name, json);
    return "/tmp/" + name;
}

} // namespace kv::sim::test
