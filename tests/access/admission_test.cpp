// SPDX-License-Identifier: Apache-2.0
// Admission from the stored privileges and rules: the interface bit, the
// AND of a user's rules, each condition and the lines a refusal leaves.
#include "access_test.h"

#include <netinet/in.h>

#include <ctime>

using namespace kv::access::test;

namespace
{

unsigned rule_result(char id, const std::string& ip, const std::string& mac,
                     userInterface iface = INTERFACE_WEB)
{
    return checkUserRule("alice", ip, mac, id, iface);
}

TEST(Privilege, TheInterfaceBitAdmitsAndUnknownUsersPass)
{
    store_user("alice", "000000000001", "1");
    EXPECT_EQ(std::make_tuple(0u, std::string("1")),
              checkUserPrivilege("alice", INTERFACE_WEB));
    EXPECT_EQ(std::make_tuple(256u, std::string("1")),
              checkUserPrivilege("alice", INTERFACE_SSH));
    EXPECT_EQ(std::make_tuple(256u, std::string("1")),
              checkUserPrivilege("alice", static_cast<userInterface>(12)));
    EXPECT_EQ(std::make_tuple(0u, std::string()),
              checkUserPrivilege("Alice", INTERFACE_SSH));
}

TEST(Privilege, EveryLineOfTheUserMustAllowAndTheLastGivesTheRules)
{
    write_text(kPrivilege, "bob,000000000101,1\nbob,000000000001,2\n");
    EXPECT_EQ(std::make_tuple(0u, std::string("2")),
              checkUserPrivilege("bob", INTERFACE_WEB));
    EXPECT_EQ(std::make_tuple(256u, std::string("2")),
              checkUserPrivilege("bob", INTERFACE_SSH));
}

TEST(Privilege, MissingFileAdmitsEverybodyAndABrokenOneRefusesEverybody)
{
    store_rule(0, "10.0.0.0/8", "", "");
    EXPECT_EQ(0, checkUser("anyone", "::ffff:11.0.0.1", "", INTERFACE_SSH));

    write_text(kPrivilege, "alice,000000000001,\nbob,0x01,\n");
    EXPECT_EQ(4096, checkUser("alice", "::ffff:10.0.0.1", "", INTERFACE_WEB));
    EXPECT_THAT(trace_log(), HasSubstr("check user interface privilege "
                                       "failed. userame: alice, ip: "
                                       "::ffff:10.0.0.1, INTERFACE_WEB\n"));
}

TEST(Rules, AllOfAUsersRulesMustPassAndTheFailingPositionIsLogged)
{
    store_rule(0, "192.168.1.0/24", "", "");
    store_rule(1, "10.0.0.0/8", "", "");
    store_rule(2, "192.168.0.0/16", "", "");
    store_user("alice", "000000000001", "02");
    store_user("bob", "000000000001", "12");

    EXPECT_EQ(0, checkUser("alice", "::ffff:192.168.1.20", "", INTERFACE_WEB));
    EXPECT_EQ(257,
              checkUser("alice", "::ffff:192.168.2.20", "", INTERFACE_WEB));
    EXPECT_THAT(trace_log(), HasSubstr("check failed ruleid: 0, 257\n"));
    EXPECT_EQ(257, checkUser("bob", "::ffff:10.0.0.1", "", INTERFACE_WEB));
    EXPECT_THAT(trace_log(), HasSubstr("check failed ruleid: 1, 257\n"));
}

TEST(Rules, MappedIpv4ClientsMeetTheIpv4NetworkAndIpv6ClientsTheIpv6One)
{
    store_rule(0, "192.168.1.0/24", "", "");
    store_rule(1, "", "", "", true, "fe80::/64");
    EXPECT_EQ(0u, rule_result('0', "::ffff:192.168.1.20", ""));
    EXPECT_EQ(257u, rule_result('0', "::ffff:192.168.2.20", ""));
    EXPECT_THAT(trace_log(), HasSubstr("ruleip:::ffff:192.168.1.0"
                                       "\xEF\xBC\x8C mask:120\n"));
    EXPECT_EQ(0u, rule_result('0', "fe80::1", "")) << "no IPv6 condition";
    EXPECT_EQ(0u, rule_result('1', "fe80::1:2", ""));
    EXPECT_EQ(257u, rule_result('1', "2001:db8::1", ""));
    EXPECT_EQ(0u, rule_result('1', "::ffff:192.168.2.20", ""))
        << "no IPv4 condition";
}

TEST(Rules, MacPrefixAppliesOnlyWhenTheClientsMacIsKnown)
{
    store_rule(0, "", "00:1A:2B", "");
    EXPECT_EQ(0u, rule_result('0', "::ffff:10.0.0.1", "00:1a:2b:33:44:55"));
    EXPECT_EQ(258u, rule_result('0', "::ffff:10.0.0.1", "00:1a:2c:33:44:55"));
    EXPECT_EQ(0u, rule_result('0', "::ffff:10.0.0.1", ""));
}

TEST(Rules, LocalLoginsMeetOnlyTheTimeCondition)
{
    store_rule(0, "192.168.1.0/24", "00:1a:2b", "");
    store_rule(1, "192.168.1.0/24", "00:1a:2b", "2000/1/1-2000/1/2");
    EXPECT_EQ(0u, rule_result('0', "", "", INTERFACE_LOCAL));
    EXPECT_EQ(259u, rule_result('1', "", "", INTERFACE_LOCAL));
    EXPECT_EQ(259u,
              rule_result('1', "::ffff:192.168.1.1", "00:1a:2b:00:00:01"));
}

TEST(Rules, AbsentSwitchedOffOrUnknownRulesAdmit)
{
    EXPECT_EQ(0, checkUser("anyone", "::ffff:11.0.0.1", "", INTERFACE_WEB))
        << "no files at all";
    store_user("alice", "000000000001", "01");
    EXPECT_EQ(0, checkUser("alice", "::ffff:11.0.0.1", "", INTERFACE_WEB))
        << "no rules file";

    store_rule(2, "10.0.0.0/8", "", "");
    store_rule(1, "10.0.0.0/8", "", "", false);
    EXPECT_EQ(0, checkUser("alice", "::ffff:11.0.0.1", "", INTERFACE_WEB));
    EXPECT_THAT(trace_log(), HasSubstr("rule status is false. ruleid: 1\n"));
}

TEST(Rules, BrokenNetworkFieldsRefuse)
{
    for (const char* line : {"0,10.0.0.0,,,1,\n", "0,10.0.0.0/x,,,1,\n",
                             "0,,,,1,fe80::\n", "0,,,,1,fe80::/64/1\n"})
    {
        write_text(kRules, line);
        EXPECT_EQ(4096u, rule_result('0', "fe80::1", "")) << line;
        EXPECT_EQ(4096u, rule_result('0', "::ffff:10.0.0.1", "")) << line;
    }
    write_text(kRules, "0,,,,1,\n\n");
    EXPECT_EQ(4096u, rule_result('0', "::ffff:10.0.0.1", ""));
}

TEST(Endpoint, EachInterfaceGivesItsAddressAndOnlyIpv6TextsPass)
{
    struct Case
    {
        userInterface iface;
        const char* endpoint;
        const char* address; // nullptr: refused
    };
    const Case cases[] = {
        {INTERFACE_WEB, "::ffff:10.0.0.5", "::ffff:10.0.0.5"},
        {INTERFACE_REDFISH, "fe80::1", "fe80::1"},
        {INTERFACE_IPMI, "::1", "::1"},
        {INTERFACE_SSH, "::ffff:10.0.0.5:50022", "::ffff:10.0.0.5"},
        {INTERFACE_SNMP, "UDP: [::ffff:10.0.0.5]:40000->[::ffff:10.0.0.1]:161",
         "::ffff:10.0.0.5"},
        {INTERFACE_WEB, "10.0.0.5", nullptr},
        {INTERFACE_SSH, "10.0.0.5:22", nullptr},
        {INTERFACE_SNMP, "UDP: 10.0.0.5:40000", nullptr},
        {INTERFACE_SNMP, "UDP: [::ffff:10.0.0.5", nullptr},
        {INTERFACE_LOCAL, "::1", nullptr},
        {INTERFACE_WEB, "", nullptr},
    };
    for (const Case& c : cases)
    {
        char out[INET6_ADDRSTRLEN] = "untouched";
        const int result = getIpByEndpoint(c.endpoint, out, c.iface);
        EXPECT_EQ(c.address != nullptr ? 0 : 4096, result) << c.endpoint;
        EXPECT_STREQ(c.address != nullptr ? c.address : "untouched", out)
            << c.endpoint;
    }
    const std::string log = trace_log();
    EXPECT_THAT(log, HasSubstr(" 10.0.0.5, ipv6 check failed.\n"));
    EXPECT_THAT(log, HasSubstr(" NULL, ipv6 check failed.\n"));
}

TEST(Login, EndpointFormsReachTheRulesAndRefusalsAreLogged)
{
    store_rule(0, "10.0.0.0/8", "", "");
    store_user("alice", "000000000101", "0");
    store_user("bob", "111111111111", "0");

    EXPECT_EQ(0u,
              checkUserAllInOne("alice", INTERFACE_WEB, "::ffff:10.0.0.5", 0));
    EXPECT_EQ(0u, checkUserAllInOne("alice", INTERFACE_SSH,
                                    "::ffff:10.0.0.5:40022", 0));
    EXPECT_EQ(0u,
              checkUserAllInOne(
                  "bob", INTERFACE_SNMP,
                  "UDP: [::ffff:10.0.0.5]:40000->[::ffff:10.0.0.1]:161", 0));
    EXPECT_EQ(0u, checkUserAllInOne("bob", INTERFACE_LOCAL, "anything", 0));
    EXPECT_EQ(257u,
              checkUserAllInOne("alice", INTERFACE_WEB, "::ffff:11.0.0.5", 0));
    EXPECT_EQ(256u,
              checkUserAllInOne("alice", INTERFACE_IPMI, "::ffff:10.0.0.5", 0));
    EXPECT_EQ(4096u, checkUserAllInOne("alice", INTERFACE_WEB, "10.0.0.5", 0));

    const std::string log = trace_log();
    // Refusals carry the storage error text of the same offset.
    EXPECT_THAT(log, HasSubstr("Login Failed username: alice, "
                               "endpoint:::ffff:11.0.0.5, dev: eth1, "
                               "interface:INTERFACE_WEB, reason: PARAMETER IP "
                               "ERROR\n"));
    EXPECT_THAT(log, HasSubstr("Login Failed username: alice, "
                               "endpoint:::ffff:10.0.0.5, dev: eth1, "
                               "interface:INTERFACE_IPMI, reason: INTERNAL "
                               "ERROR\n"));
    EXPECT_THAT(log, HasSubstr("Login Failed username: alice, "
                               "endpoint:10.0.0.5, dev: eth1, "
                               "interface:INTERFACE_WEB, reason: INTERNAL "
                               "ERROR\n"));
    EXPECT_THAT(log, Not(HasSubstr("endpoint:::ffff:10.0.0.5:40022")));
}

TEST(Login, Ipv6ClientsHaveNoMacAndStillMeetTheirRules)
{
    store_rule(0, "", "00:1a:2b", "", true, "fe80::/64");
    store_user("alice", "000000000001", "0");
    EXPECT_EQ(0u, checkUserAllInOne("alice", INTERFACE_WEB, "fe80::7", 0));
    EXPECT_EQ(257u, checkUserAllInOne("alice", INTERFACE_WEB, "fe81::7", 0));
    const std::string log = trace_log();
    EXPECT_THAT(log, HasSubstr("fe80::7, convert ip to mac failed. \n"));
    EXPECT_THAT(log, HasSubstr("Can not get mac address username: alice, "
                               "endpoint:fe80::7, dev: eth1, "
                               "interface:INTERFACE_WEB, reason: INTERNAL "
                               "ERROR\n"));
}

TEST(Login, StorageErrorsAreLoggedWithTheirOwnText)
{
    write_text(kPrivilege, "alice,000000000001,0\n");
    write_text(kRules, "0,10.0.0.0,,,1,\n");
    EXPECT_EQ(4096u,
              checkUserAllInOne("alice", INTERFACE_WEB, "::ffff:10.0.0.5", 0));
    EXPECT_THAT(trace_log(), HasSubstr("interface:INTERFACE_WEB, reason: "
                                       "INTERNAL ERROR\n"));
}

} // namespace
