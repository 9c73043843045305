// SPDX-License-Identifier: Apache-2.0
// Shared pieces of the hardware tests: the example board with an empty error
// log, and the lines that reached that log.
#pragma once

#include "sim_fixture.h"
#include "test_helpers.h"

#include <libkv/hw.h>

namespace kv::hw::test
{

using namespace kv::sim;
using namespace kv::test;
using kv::sim::test::BusHandle;
using kv::sim::test::received;
using kv::sim::test::sent;
using testing::ElementsAre;
using testing::IsEmpty;

inline const std::string error_log =
    "/run/BMCInfo/Development/Log/bmc/log_error";

class SimBoard : public kv::sim::test::ExampleBoard
{
  protected:
    void SetUp() override
    {
        ExampleBoard::SetUp();
        write_text(error_log, ""); // log_call appends to an existing log
    }
};

// Lines in the error log.
inline long error_lines()
{
    return std::ranges::count(read_text(error_log).value_or(""), '\n');
}

} // namespace kv::hw::test
