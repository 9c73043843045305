// SPDX-License-Identifier: Apache-2.0
// libkv access control: the user rule and privilege store under /etc/user and
// the admission checks every login front end asks before it lets a user in.
// C++ only (global namespace, C++ linkage).
//
// Results share one integer space: 0 admitted or done, 256 + n a refusal
// whose text is FailReasonStr[n], 4096 + n a storage or parameter error whose
// text is ErrorCodeStr[n]. No exception leaves these functions except from
// the two writeRule2File and modifyLineData, which raise std::exception.
// errno means nothing after them; getMacBySockfd returns its cause instead.
#ifndef LIBKV_ACCESS_H
#define LIBKV_ACCESS_H

#ifndef __cplusplus
#error "libkv/access.h is a C++ header"
#endif

#include <libkv/export.h>

#include <bitset>
#include <cstdint>
#include <ctime>
#include <set>
#include <string>
#include <tuple>
#include <vector>

// The login front ends; also the bit of a user's privilege that admits the
// user through it.
enum userInterface
{
    INTERFACE_WEB = 0,
    INTERFACE_IPMI = 1,
    INTERFACE_SSH = 2,
    INTERFACE_LOCAL = 3,
    INTERFACE_REDFISH = 4,
    INTERFACE_SNMP = 5
};

// One admission rule, the line "id,ipv4,mac,validTime,openflag,ipv6" of
// /etc/user/rules. Empty conditions admit; a rule switched off admits all.
class userRule
{
  public:
    unsigned int id;       // 0..2
    std::string ipv4;      // "192.168.1.0/24"
    std::string mac;       // "00:11:22:33:44:55", or a vendor prefix "00:11:22"
    std::string validTime; // "2023/01/01 08:00-2023/12/31 18:00", "08:00-18:00"
    std::string ipv6;      // "fe80::/64"
    bool openflag;

    // Leaves the rules file with this rule in place of any of the same id,
    // as /etc/user/rules_temp for updateFile to commit.
    KV_EXPORT static void writeRule2File(const userRule& rule);
};

// One user's line "username,privilege,ruleid" of /etc/user/privilege.
class userPrivilege
{
  public:
    std::string username;
    std::bitset<12> privilege; // bit n admits through userInterface n
    std::string ruleid;        // digits '0'..'2', each a rule that must pass

    // As userRule::writeRule2File, for /etc/user/privilege_temp.
    KV_EXPORT static void writeRule2File(const userPrivilege& user);
};

// Texts of the interfaces (6..11 are null), of the errors 4096..4105 and of
// the refusals 256..261.
KV_EXPORT extern const char* userInterfaceStr[12];
KV_EXPORT extern const char* ErrorCodeStr[10];
KV_EXPORT extern const char* FailReasonStr[6];

// ---- Store ----------------------------------------------------------------

// The pieces of `text` between `sep`s, empty ones included ("a,b," gives
// "a", "b", ""). An empty text gives no pieces.
KV_EXPORT void split(std::vector<std::string>& out, const std::string& text,
                     char sep);

// Append the records of the committed files. 0, 4103 when the file is
// missing, 4096 for a malformed line (rules: reading stops there;
// privileges: the line is skipped and reading goes on).
KV_EXPORT int getUserRule(std::vector<userRule>& rules);
KV_EXPORT int getUserPrivilege(std::vector<userPrivilege>& users);

// Validate one record and leave the new file as the "_temp" file: 0, or
// 4096 (id above 2), 4097..4099 (a bad ip, mac or time), 4100 (privilege
// not '0'/'1'), 4104 (ruleid digit not 0..2), 4102 (write failed).
KV_EXPORT int setUserRule(unsigned char id, std::string& ipv4, std::string& mac,
                          std::string validTime, bool openflag,
                          std::string ipv6);
KV_EXPORT unsigned setUserPrivilege(const std::string& username,
                                    const std::string& privilege,
                                    const std::string& ruleid);

// Writes path + "_temp": the lines of `path` whose first field is not `key`,
// then `line`.
KV_EXPORT void modifyLineData(std::string path, const std::string& key,
                              const std::string& line);

// Commit (non-zero) moves path + "_temp" over `path`; 1 when that fails.
// Otherwise drops the "_temp" file; 0.
KV_EXPORT int updateFile(const char* path, int commit);

// ---- Admission checks -----------------------------------------------------

// The login front ends' question: may `user` come in through `iface` from
// the peer the daemon saw as `endpoint` ("10.0.0.5:22" for SSH, the SNMP
// transport text "UDP: [::ffff:10.0.0.5]:40000->[...]:161", a bare IPv6 or
// mapped IPv4 text for the others, anything for local)? The last argument
// is not used. 0 admitted, else the refusal or error.
KV_EXPORT unsigned checkUserAllInOne(const std::string& user,
                                     userInterface iface,
                                     const std::string& endpoint,
                                     unsigned reserved);

// The privilege bit, then every rule the user's line lists (all must pass).
KV_EXPORT int checkUser(const std::string& user, const std::string& ip,
                        const std::string& mac, userInterface iface);
// 256 when the user's line lacks the interface's bit; with its rule ids.
KV_EXPORT std::tuple<unsigned, std::string>
    checkUserPrivilege(const std::string& user, userInterface iface);
// One rule ('0'..'2'): 257 ip, 258 mac, 259 time; 0 when it passes or does
// not exist.
KV_EXPORT unsigned checkUserRule(const std::string& user, const std::string& ip,
                                 const std::string& mac, char ruleid,
                                 userInterface iface);

// Whether the IPv6 texts share their first `prefix` bits.
KV_EXPORT bool ipCheckRule(const std::string& ip, const std::string& network,
                           uint8_t prefix);
// Whether `mac` begins with `ruleMac`, in either case; an empty rule passes.
KV_EXPORT bool macCheckRule(const std::string& mac, const std::string& ruleMac);
// Whether now lies in "start-end" (inclusive); time-only ends make a daily
// window. Empty and malformed periods pass.
KV_EXPORT bool timeCheckRule(const std::string& validTime);
// "2024/3/1 08:30", "2024/03/01", "08:30:15" into `out` (other fields 0).
KV_EXPORT bool convertString2Date(const std::string& text, struct tm& out);
// 1 for a text without '.', 0 for one with it (IPv4 or mapped IPv4).
KV_EXPORT int getIpType(const std::string& ip);
KV_EXPORT bool ipv4VerifyIp(const std::string& text);
// Six (or, for a vendor prefix, three) two-digit hexadecimal groups.
KV_EXPORT bool macVerify(const std::string& text);

// The peer's address text out of the endpoint, into `out` (46 bytes): 0, or
// 4096 when it is not an IPv6 text.
KV_EXPORT int getIpByEndpoint(const std::string& endpoint, char* out,
                              userInterface iface);
// The MAC text (18 bytes) of the IPv4 address at the end of `ip`, from the
// kernel's ARP table on any interface; 1 when `ip` holds no IPv4 address or
// no socket can be had, 0 otherwise (`out` untouched when no entry is found).
// `dev` is not used.
KV_EXPORT int getMacByIp(const std::string& ip, char* out,
                         const std::string& dev);
// The MAC text of a connected IPv4 socket's peer on `dev`: 0, or errno.
KV_EXPORT int getMacBySockfd(int sockfd, char* out, const std::string& dev);
// Names of the interfaces with an IPv4 address, loopback left out.
KV_EXPORT std::set<std::string> getAllNetdevice();

#endif
