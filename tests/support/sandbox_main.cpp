// SPDX-License-Identifier: Apache-2.0
// main() of every test binary: the whole binary runs inside the sandbox and
// each test starts with empty private file systems and IPC namespace.
#include "sandbox.h"

#include <gtest/gtest.h>

namespace
{

class FreshSandboxPerTest : public testing::EmptyTestEventListener
{
    void OnTestStart(const testing::TestInfo&) override
    {
        kv::sandbox::reset();
    }
};

} // namespace

int main(int argc, char** argv)
{
    kv::sandbox::enter();
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(
        new FreshSandboxPerTest);
    return RUN_ALL_TESTS();
}
