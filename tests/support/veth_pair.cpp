// SPDX-License-Identifier: Apache-2.0
#include "veth_pair.h"

#include "test_helpers.h"

#include <net/if.h>
#include <unistd.h>

#include <utility>

namespace kv::test
{

int run_ip(std::vector<std::string> args)
{
    return exit_status_of([&] {
        std::vector<char*> argv{const_cast<char*>(KV_IP_TOOL)};
        for (std::string& arg : args)
        {
            argv.push_back(arg.data());
        }
        argv.push_back(nullptr);
        ::execv(KV_IP_TOOL, argv.data());
        return 127;
    });
}

VethPair::VethPair(std::string left, std::string right) :
    left_(std::move(left)), right_(std::move(right)),
    status_(
        run_ip({"link", "add", left_, "type", "veth", "peer", "name", right_}))
{}

VethPair::~VethPair()
{
    // A peer moved into a namespace that has ended took its twin along.
    if (status_ == 0 && ::if_nametoindex(left_.c_str()) != 0)
    {
        EXPECT_EQ(0, run_ip({"link", "del", left_}));
    }
}

void VethPairTest::SetUp()
{
    pair_.emplace(left_, right_);
    if (pair_->status() != 0)
    {
        GTEST_SKIP() << "no veth pair: '" KV_IP_TOOL " link add ... type "
                        "veth' exited with "
                     << pair_->status() << " in the test's network namespace";
    }
}

} // namespace kv::test
