// SPDX-License-Identifier: Apache-2.0
// A veth pair in the test's own network namespace, made and removed with the
// ip tool (iproute2), for tests that need real interfaces.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kv::test
{

// Exit status of the ip tool with `args`, run without a shell.
int run_ip(std::vector<std::string> args);

// Fixture: the pair (names of at most 15 characters, the longest the kernel
// takes) exists for the test and is removed after it, unless a test's peer
// namespace took it along; the test is skipped where the kernel makes no
// veth pairs.
class VethPairTest : public testing::Test
{
  protected:
    VethPairTest(std::string left, std::string right) :
        left_(std::move(left)), right_(std::move(right))
    {}
    void SetUp() override;
    void TearDown() override;

    const std::string left_;
    const std::string right_;

  private:
    int status_ = -1; // of "ip link add"
};

} // namespace kv::test
