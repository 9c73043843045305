// SPDX-License-Identifier: Apache-2.0
// Shared pieces of the hardware tests: the example board with an empty error
// log, and the lines that reached that log.
#pragma once

#include "sim_fixture.h"
#include "test_helpers.h"

#include <libkv/hw.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <sstream>

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

inline std::vector<std::string> error_lines()
{
    std::istringstream text(read_text(error_log).value_or(""));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

} // namespace kv::hw::test
