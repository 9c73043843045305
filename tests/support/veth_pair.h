// SPDX-License-Identifier: Apache-2.0
// A veth pair in the test's own network namespace, made and removed with the
// ip tool (iproute2), for tests that need real interfaces.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace kv::test
{

// Exit status of the ip tool with `args`, run without a shell.
int run_ip(std::vector<std::string> args);

class VethPair
{
  public:
    // Names of at most 15 characters, the longest the kernel takes.
    VethPair(std::string left, std::string right);
    VethPair(const VethPair&) = delete;
    VethPair& operator=(const VethPair&) = delete;
    // Removes the pair, unless a test's peer namespace took it along.
    ~VethPair();

    // Exit status of "ip link add"; 0 when the pair was made.
    int status() const
    {
        return status_;
    }
    const std::string& left() const
    {
        return left_;
    }
    const std::string& right() const
    {
        return right_;
    }

  private:
    std::string left_;
    std::string right_;
    int status_;
};

// Fixture: the pair exists for the test and is removed after it; the test
// is skipped where the kernel makes no veth pairs.
class VethPairTest : public testing::Test
{
  protected:
    VethPairTest(std::string left, std::string right) :
        left_(std::move(left)), right_(std::move(right))
    {}
    void SetUp() override;
    void TearDown() override
    {
        pair_.reset();
    }

    const std::string left_;
    const std::string right_;

  private:
    std::optional<VethPair> pair_;
};

} // namespace kv::test
