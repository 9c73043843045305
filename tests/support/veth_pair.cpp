// SPDX-License-Identifier: Apache-2.0
#include "veth_pair.h"

#include "test_helpers.h"

#include <net/if.h>
#include <unistd.h>

namespace kv::test
{

int run_ip(std::vector<std::string> args)
{
    return exit_status_of([&] {
        std::vector<char*> argv{const_cast<char*>(KV_IP_TOOL)};
        for (std::string& arg : args)
            argv.push_back(arg.data());
        argv.push_back(nullptr);
        ::execv(KV_IP_TOOL, argv.data());
        return 127;
    });
}

void VethPairTest::SetUp()
{
    status_ =
        run_ip({"link", "add", left_, "type", "veth", "peer", "name", right_});
    if (status_ != 0)
        GTEST_SKIP() << "no veth pair: ip link add exited with " << status_;
}

void VethPairTest::TearDown()
{
    // A peer moved into a namespace that has ended took its twin along.
    if (status_ == 0 && ::if_nametoindex(left_.c_str()) != 0)
    {
        EXPECT_EQ(0, run_ip({"link", "del", left_}));
    }
}

} // namespace kv::test
