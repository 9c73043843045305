// SPDX-License-Identifier: Apache-2.0
// Debian's net-snmp agent on an snmpd.conf the library edited, asked by
// Debian's snmpget over loopback: what the library writes is what the agent
// does.
#include "services_test.h"

#include <libkv/services.h>

#include <gmock/gmock.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace
{

using kv::services::test::kSnmpdConf;

constexpr const char* kAgentLog = "/tmp/snmpd.log";

// snmpd in the foreground on the library's file alone, stopped by its
// process id when the scope ends.
class Agent
{
  public:
    Agent()
    {
        ::unlink(kAgentLog);
        const char* argv[] = {KV_SNMPD,   "-f",  "-C",      "-c",
                              kSnmpdConf, "-Lf", kAgentLog, nullptr};
        posix_spawn(&pid_, KV_SNMPD, nullptr, nullptr,
                    const_cast<char* const*>(argv), environ);
    }
    ~Agent()
    {
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
    }
    // The agent logs its version once its ports are open.
    static bool ready()
    {
        for (int tries = 0; tries < 500; ++tries, ::usleep(20000))
        {
            const auto log = kv::test::read_text(kAgentLog).value_or("");
            if (log.find("NET-SNMP version") != std::string::npos)
            {
                return true;
            }
        }
        return false;
    }

  private:
    pid_t pid_ = 0;
};

// sysDescr.0 asked with `version` ("1", "2c") and the community.
kv::test::CommandOutcome system_description(const std::string& version)
{
    return kv::test::run_shell(KV_SNMPGET " -v" + version +
                               " -c kv-s3cret -t 1 -r 1 -m '' -Ov "
                               "127.0.0.1:16161 .1.3.6.1.2.1.1.1.0 2>&1");
}

TEST(RealAgent, AnswersOnThePortWithTheCommunityAndVersionsTheLibraryWrote)
{
    kv::test::write_text(kSnmpdConf, kv::services::test::kBaseSnmpdConf);
    ASSERT_EQ(0, snmp_service_port_set(16161));
    ASSERT_EQ(0, snmp_community_set("kv-s3cret"));
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V2C, true));
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, true));
    {
        Agent agent;
        ASSERT_TRUE(agent.ready())
            << kv::test::read_text(kAgentLog).value_or("");
        const auto v2c = system_description("2c");
        EXPECT_EQ("STRING: \"libkv test agent\"\n", v2c.output);
        EXPECT_EQ(0, v2c.status);
    }
    // v1 still answers, so the agent is there to refuse v2c.
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V2C, false));
    Agent agent;
    ASSERT_TRUE(agent.ready()) << kv::test::read_text(kAgentLog).value_or("");
    EXPECT_EQ(0, system_description("1").status);
    const auto v2c = system_description("2c");
    EXPECT_THAT(v2c.output, testing::HasSubstr("Timeout"));
    EXPECT_NE(0, v2c.status);
}

} // namespace
