// SPDX-License-Identifier: Apache-2.0
// The rule and privilege files: validation, the lines written, the pending
// "_temp" change and its commit, and reading back what operators wrote.
#include "access_test.h"

#include <sys/mount.h>
#include <sys/stat.h>

using namespace kv::access::test;

namespace
{

std::vector<std::string> pieces(const std::string& text, char sep)
{
    std::vector<std::string> out{"left over"};
    split(out, text, sep);
    return out;
}

mode_t mode_of(const char* path)
{
    struct stat info = {};
    EXPECT_EQ(0, ::stat(path, &info)) << path;
    return info.st_mode & 07777;
}

int set_rule(unsigned char id, std::string ipv4, std::string mac = "",
             std::string validTime = "", std::string ipv6 = "")
{
    return setUserRule(id, ipv4, mac, validTime, true, ipv6);
}

TEST(Split, KeepsEmptyPiecesAndATrailingOne)
{
    EXPECT_THAT(pieces("a,,b", ','), ElementsAre("a", "", "b"));
    EXPECT_THAT(pieces("a,b,", ','), ElementsAre("a", "b", ""));
    EXPECT_THAT(pieces(",", ','), ElementsAre("", ""));
    EXPECT_THAT(pieces("a", ','), ElementsAre("a"));
    EXPECT_THAT(pieces("10.0.0.0/8", '/'), ElementsAre("10.0.0.0", "8"));
    EXPECT_THAT(pieces("", ','), ElementsAre());
}

TEST(RuleStore, ChangeWaitsInTempUntilCommittedOrDropped)
{
    std::string ipv4 = "10.0.0.0/8";
    std::string mac;
    ASSERT_EQ(0, setUserRule(1, ipv4, mac, "", true, ""));
    EXPECT_EQ("1,10.0.0.0/8,,,1,\n", content_of(kRulesPending));
    std::vector<userRule> rules;
    EXPECT_EQ(4103, getUserRule(rules)) << "the pending change is not read";

    EXPECT_EQ(0, updateFile(kRules, 0));
    EXPECT_FALSE(read_text(kRulesPending));
    EXPECT_FALSE(read_text(kRules));

    ASSERT_EQ(0, setUserRule(1, ipv4, mac, "", true, ""));
    EXPECT_EQ(0, updateFile(kRules, 1));
    EXPECT_EQ("1,10.0.0.0/8,,,1,\n", content_of(kRules));
    EXPECT_FALSE(read_text(kRulesPending));

    EXPECT_EQ(1, updateFile(kRules, 1)) << "nothing left to commit";
    EXPECT_EQ(0, updateFile(kRules, 0));
    const std::string log = trace_log();
    EXPECT_THAT(log, HasSubstr("updateFile: /etc/user/rules\n"));
    EXPECT_THAT(log, HasSubstr("updateFile rename failed. errstr:No such file "
                               "or directory, original:/etc/user/rules_temp, "
                               "dest:/etc/user/rules\n"));
    EXPECT_THAT(log, HasSubstr("updateFile unlink failed. errstr:No such file "
                               "or directory, original:/etc/user/rules_temp, "
                               "dest:/etc/user/rules\n"));
}

TEST(RuleStore, StoringAnIdAgainMovesItsOnlyLineToTheEnd)
{
    store_rule(1, "10.0.0.0/8", "", "");
    store_rule(0, "", "00:11:22", "08:00-18:00", false, "fe80::/64");
    store_rule(1, "192.168.1.0/24", "", "");
    EXPECT_EQ("0,,00:11:22,08:00-18:00,0,fe80::/64\n"
              "1,192.168.1.0/24,,,1,\n",
              content_of(kRules));
    EXPECT_THAT(trace_log(),
                HasSubstr("Set user rule successful. id: 0, ipv4: , ipv6: "
                          "fe80::/64, mac: 00:11:22, validTime: "
                          "08:00-18:00, openflag: 0\n"));

    std::vector<userRule> rules;
    ASSERT_EQ(0, getUserRule(rules));
    ASSERT_EQ(2u, rules.size());
    EXPECT_EQ(0u, rules[0].id);
    EXPECT_EQ("00:11:22", rules[0].mac);
    EXPECT_EQ("08:00-18:00", rules[0].validTime);
    EXPECT_EQ("fe80::/64", rules[0].ipv6);
    EXPECT_FALSE(rules[0].openflag);
    EXPECT_EQ(1u, rules[1].id);
    EXPECT_EQ("192.168.1.0/24", rules[1].ipv4);
    EXPECT_TRUE(rules[1].openflag);
}

TEST(RuleStore, IdAboveTwoIsRefusedBeforeAnythingIsWritten)
{
    EXPECT_EQ(4096, set_rule(3, "10.0.0.0/8"));
    EXPECT_FALSE(std::filesystem::exists("/etc/user"));
    EXPECT_THAT(trace_log(),
                HasSubstr("[common(927)] setUserRule expression \"id < 3\" "
                          "failed.\n"));
}

TEST(RuleStore, ParametersAreCheckedFieldByField)
{
    struct Case
    {
        std::string ipv4, mac, validTime, ipv6;
        int result;
    };
    const Case cases[] = {
        {"10.0.0.1/32", "", "", "", 0},
        {"10.0.0.1/33", "", "", "", 4097},
        {"10.0.0.1", "", "", "", 4097},
        {"10.0.0.1/8/8", "", "", "", 4097},
        {"10.0.0.256/8", "", "", "", 4097},
        {"10.0.0.0/eight", "", "", "", 4097},
        {"", "", "", "::1/128", 0},
        {"", "", "", "::1/129", 4097},
        {"", "", "", "::1", 4097},
        {"", "00:1A:2b:33:44:55", "", "", 0},
        {"", "00:1a:2b:33:44", "", "", 4098},
        {"", "00:1a:2g", "", "", 4098},
        {"", "", "2023/01/01 08:00-2023/12/31 18:00", "", 0},
        {"", "", "2023/01/01 08:00", "", 4099},
        {"", "", "2023/01/01-2050/01/01", "", 4099},
        {"", "", "08:00-25:00", "", 4099},
        // A comma or line break would start a field or a record of its own.
        {"10.0.0.0/8\n2,,,,1", "", "", "", 4097},
        {"", "", "08:00-18:00\n2,,,,1", "", 4099},
        {"", "", "", "::1/64,x", 4097},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.ipv4 + "|" + c.mac + "|" + c.validTime + "|" + c.ipv6);
        EXPECT_EQ(c.result, set_rule(2, c.ipv4, c.mac, c.validTime, c.ipv6));
        EXPECT_EQ(c.result == 0, std::filesystem::exists(kRulesPending));
        updateFile(kRules, 0);
    }
    EXPECT_FALSE(read_text(kRules));
}

TEST(RuleStore, RefusalsAreLoggedWithTheReason)
{
    EXPECT_EQ(4097, set_rule(1, "10.0.0.1/33"));
    EXPECT_EQ(4097, set_rule(1, "", "", "", "fe80::zz/64"));
    const std::string log = trace_log();
    // id and flag are printed as characters, as they always were.
    EXPECT_THAT(log, HasSubstr("Set user rule failed. id: \x01, ipv4: "
                               "10.0.0.1/33, ipv6: , mac: , validTime: , "
                               "openflag: \x01, reason: PARAMETER IP ERROR\n"));
    EXPECT_THAT(log,
                HasSubstr("setUserRule, ipv6 convert error, ip:fe80::zz/64\n"));
}

TEST(RuleStore, LinesReadBackAsOperatorsWriteThem)
{
    write_text(kRules, "2,,,,0\n0,10.0.0.0/8,,,7,\n");
    std::vector<userRule> rules;
    ASSERT_EQ(0, getUserRule(rules));
    ASSERT_EQ(2u, rules.size());
    EXPECT_EQ(2u, rules[0].id);
    EXPECT_FALSE(rules[0].openflag);
    EXPECT_EQ("", rules[0].ipv6);
    EXPECT_TRUE(rules[1].openflag) << "any non-zero flag is on";

    rules.clear();
    write_text(kRules, "0,,,,1,\n\n1,,,,1,\n");
    EXPECT_EQ(4096, getUserRule(rules)) << "an empty line has no fields";
    EXPECT_EQ(1u, rules.size()) << "lines before it stay";

    rules.clear();
    write_text(kRules, "one,,,,1,\n");
    const std::string printed =
        stderr_of([&] { EXPECT_EQ(4096, getUserRule(rules)); });
    EXPECT_THAT(printed, HasSubstr("stoi"));
    EXPECT_TRUE(rules.empty());

    std::remove(kRules);
    rules.assign(1, userRule{});
    EXPECT_EQ(4103, getUserRule(rules));
    EXPECT_EQ(1u, rules.size());
}

TEST(RuleStore, OverlongLineEndsTheFileForReadersAndRewrites)
{
    const auto line_of = [](size_t length) {
        const std::string head = "1,,,";
        const std::string tail = ",1,";
        return head + std::string(length - head.size() - tail.size(), 'x') +
               tail + "\n";
    };
    write_text(kRules, "0,,,,1,\n" + line_of(1023) + "2,,,,1,\n");
    std::vector<userRule> rules;
    EXPECT_EQ(0, getUserRule(rules));
    EXPECT_EQ(3u, rules.size()) << "1023 characters still fit";

    write_text(kRules, "0,,,,1,\n" + line_of(1024) + "2,,,,1,\n");
    rules.clear();
    EXPECT_EQ(0, getUserRule(rules));
    EXPECT_EQ(1u, rules.size());

    store_rule(1, "10.0.0.0/8", "", "");
    EXPECT_EQ("0,,,,1,\n1,10.0.0.0/8,,,1,\n", content_of(kRules));
}

TEST(RuleStore, LeftoverTempIsDroppedWithAWarning)
{
    write_text(kRulesPending, "9,half a change\n");
    store_rule(0, "10.0.0.0/8", "", "");
    EXPECT_EQ("0,10.0.0.0/8,,,1,\n", content_of(kRules));
    EXPECT_THAT(trace_log(),
                HasSubstr("WARNING: Set user privilege, TEMP file exist. "
                          "DELETE.\n"));
}

TEST(RuleStore, CommitKeepsTheFilesModeAndANewFileIsNotWorldWritable)
{
    const mode_t old_mask = ::umask(022);
    store_rule(0, "10.0.0.0/8", "", "");
    EXPECT_EQ(0644u, mode_of(kRules));
    ASSERT_EQ(0, ::chmod(kRules, 0600));
    store_rule(0, "10.0.0.0/16", "", "");
    EXPECT_EQ(0600u, mode_of(kRules));
    ::umask(old_mask);
}

TEST(RuleStore, TempThatCannotBeMadeIsOnlyLoggedAndTheCommitFails)
{
    write_text("/etc/user", "not a folder");
    EXPECT_EQ(0, set_rule(0, "10.0.0.0/8"));
    EXPECT_EQ(1, updateFile(kRules, 1));
    EXPECT_THAT(trace_log(), HasSubstr("open file in write mode failed, f: "
                                       "/etc/user/rules\n"));
}

TEST(RuleStore, FailedWriteIsReportedAndLeavesNoTemp)
{
    std::filesystem::create_directories("/etc/user");
    ASSERT_EQ(0, ::mount("tmpfs", "/etc/user", "tmpfs", 0, "size=4k"));
    write_text("/etc/user/filler", std::string(4096, 'f'));
    EXPECT_EQ(4102, set_rule(0, "10.0.0.0/8"));
    EXPECT_FALSE(std::filesystem::exists(kRulesPending));
    const std::string log = trace_log();
    EXPECT_THAT(log, HasSubstr("  modify failed file\n"));
    EXPECT_THAT(log, HasSubstr("Set user rule failed. id: 0, ipv4: 10.0.0.0/8, "
                               "ipv6: , mac: , validTime: , openflag: 1, "
                               "reason: WRITE FILE FAILED\n"));
    ::umount2("/etc/user", MNT_DETACH);
}

TEST(PrivilegeStore, PrivilegeIsWrittenAsTwelveBits)
{
    store_user("alice", "101", "1");
    store_user("bob", "1000000000001", "");
    store_user("carol", "", "0212");
    EXPECT_EQ("alice,000000000101,1\n"
              "bob,100000000000,\n"
              "carol,000000000000,0212\n",
              content_of(kPrivilege));
    EXPECT_THAT(trace_log(),
                HasSubstr("Set user privilege successed. username: alice, "
                          "privilege: 101, ruleid: 1\n"));

    std::vector<userPrivilege> users;
    ASSERT_EQ(0, getUserPrivilege(users));
    ASSERT_EQ(3u, users.size());
    EXPECT_EQ("alice", users[0].username);
    EXPECT_EQ(0b101u, users[0].privilege.to_ulong());
    EXPECT_EQ("1", users[0].ruleid);
    EXPECT_EQ(0x800u, users[1].privilege.to_ulong());
}

TEST(PrivilegeStore, BadRuleIdsPrivilegesAndNamesWriteNothing)
{
    EXPECT_EQ(4104u, setUserPrivilege("dave", "1", "013"));
    EXPECT_EQ(4100u, setUserPrivilege("dave", "000000000002", "0"));
    EXPECT_EQ(4096u, setUserPrivilege("dave,111111111111,", "1", ""));
    EXPECT_EQ(4096u, setUserPrivilege("x\nroot", "1", ""));
    EXPECT_FALSE(std::filesystem::exists(kPrivilegePending));
    const std::string log = trace_log();
    EXPECT_THAT(log, HasSubstr("Set user privilege faile. username: dave, "
                               "privilege: 1, ruleid: 013, reason: PARAMETER "
                               "RULEID ERROR\n"));
    EXPECT_THAT(log, HasSubstr("Set user privilege faile. username: dave, "
                               "privilege: 000000000002, ruleid: 0, reason: "
                               "PARAMETER PRIVILEGE ERROR\n"));
}

TEST(PrivilegeStore, BadLinesAreSkippedAndReadingGoesOn)
{
    write_text(kPrivilege, "alice,000000000001,0\n"
                           "\n"
                           "bob,12,\n"
                           "carol,11,2,extra\n"
                           "dave,1\n"
                           "erin,100,\n");
    std::vector<userPrivilege> users;
    EXPECT_EQ(4096, getUserPrivilege(users));
    ASSERT_EQ(3u, users.size());
    EXPECT_EQ("alice", users[0].username);
    EXPECT_EQ("carol", users[1].username);
    EXPECT_EQ("2", users[1].ruleid);
    EXPECT_EQ("erin", users[2].username);
    const std::string log = trace_log();
    EXPECT_THAT(log,
                HasSubstr("get user privilege failed.. size: 0, line: \n"));
    EXPECT_THAT(log, HasSubstr("get user privilege failed.. size: 4, line: "
                               "carol,11,2,extra\n"));
    EXPECT_THAT(
        log, HasSubstr("get user privilege failed.. size: 2, line: dave,1\n"));

    users.clear();
    std::remove(kPrivilege);
    EXPECT_EQ(4103, getUserPrivilege(users));
}

TEST(PrivilegeStore, ModifyLineDataDropsEveryLineOfTheKey)
{
    write_text(kPrivilege, "alice,1,\nbob,1,\nalice,11,\n\ncarol,1,\n");
    modifyLineData(kPrivilege, "alice", "alice,000000000111,2\n");
    EXPECT_EQ("bob,1,\n\ncarol,1,\nalice,000000000111,2\n",
              content_of(kPrivilegePending));
    EXPECT_EQ("alice,1,\nbob,1,\nalice,11,\n\ncarol,1,\n",
              content_of(kPrivilege));
}

} // namespace
