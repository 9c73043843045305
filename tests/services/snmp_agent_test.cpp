// SPDX-License-Identifier: Apache-2.0
// Debian's net-snmp agent on an snmpd.conf the library edited, asked by
// Debian's snmpget over loopback: what the library writes is what the agent
// does.
#include "services_test.h"

#include <libkv/services.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

extern char** environ;

namespace
{

using kv::services::test::kBaseSnmpdConf;
using kv::services::test::kSnmpdConf;

constexpr uint16_t kAgentPort = 16161;
constexpr const char* kAgentLog = "/tmp/snmpd.log";

// snmpd in the foreground on the library's file alone, until the scope
// ends; it is stopped by its process id.
class Agent
{
  public:
    Agent()
    {
        std::filesystem::remove(kAgentLog);
        const char* argv[] = {KV_SNMPD,   "-f",  "-C",      "-c",
                              kSnmpdConf, "-Lf", kAgentLog, nullptr};
        if (posix_spawn(&pid_, KV_SNMPD, nullptr, nullptr,
                        const_cast<char* const*>(argv), environ) != 0)
        {
            pid_ = -1;
        }
    }
    ~Agent()
    {
        if (pid_ > 0)
        {
            ::kill(pid_, SIGTERM);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    // The agent writes its version once its ports are open.
    bool ready() const
    {
        const auto give_up =
            std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (pid_ > 0 && std::chrono::steady_clock::now() < give_up)
        {
            if (kv::test::read_text(kAgentLog).value_or("").find(
                    "NET-SNMP version") != std::string::npos)
            {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

  private:
    pid_t pid_ = -1;
};

// sysDescr.0 asked with `version` ("1", "2c") and `community`.
kv::test::CommandOutcome system_description(const std::string& version,
                                            const std::string& community)
{
    return kv::test::run_shell(KV_SNMPGET " -v" + version + " -c " + community +
                               " -t 1 -r 1 -m '' -On -Ov "
                               "127.0.0.1:" +
                               std::to_string(kAgentPort) +
                               " .1.3.6.1.2.1.1.1.0 2>&1");
}

TEST(RealAgent, AnswersWithTheCommunityAndVersionsTheLibraryWrote)
{
    kv::test::write_text(kSnmpdConf, kBaseSnmpdConf);
    ASSERT_EQ(0, snmp_service_port_set(kAgentPort));
    ASSERT_EQ(0, snmp_community_set("kv-s3cret"));
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V2C, true));
    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V1, true));
    {
        Agent agent;
        ASSERT_TRUE(agent.ready())
            << kv::test::read_text(kAgentLog).value_or("");
        const auto v2c = system_description("2c", "kv-s3cret");
        EXPECT_EQ(0, v2c.status) << v2c.output;
        EXPECT_EQ("STRING: \"libkv test agent\"\n", v2c.output);
        EXPECT_NE(0, system_description("2c", "public").status);
        EXPECT_EQ(0, system_description("1", "kv-s3cret").status);
    }

    ASSERT_EQ(0, snmp_ver_status_set(SNMP_VERSION_V2C, false));
    Agent agent;
    ASSERT_TRUE(agent.ready()) << kv::test::read_text(kAgentLog).value_or("");
    // v1 still answers, so the agent is there to refuse v2c.
    const auto v1 = system_description("1", "kv-s3cret");
    EXPECT_EQ(0, v1.status) << v1.output;
    const auto v2c = system_description("2c", "kv-s3cret");
    EXPECT_NE(0, v2c.status) << v2c.output;
    EXPECT_NE(std::string::npos, v2c.output.find("Timeout")) << v2c.output;
}

} // namespace
