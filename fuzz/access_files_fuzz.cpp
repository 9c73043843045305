// SPDX-License-Identifier: Apache-2.0
// The rule and privilege files are edited by hand too: any text in them must
// read, check a login and be rewritten without a stray read or write.
#include "fuzz_input.h"

#include <libkv/access.h>

KV_FUZZ_SANDBOX("/etc/user")

KV_FUZZ_TARGET
{
    // The same text as both files: a line may be either kind.
    write_input("/etc/user/rules", data, size);
    write_input("/etc/user/privilege", data, size);
    std::vector<userRule> rules;
    std::vector<userPrivilege> users;
    getUserRule(rules);
    getUserPrivilege(users);
    for (const userPrivilege& user : users)
    {
        checkUser(user.username, "::ffff:10.0.0.1", "00:11:22:33:44:55",
                  INTERFACE_WEB);
        checkUser(user.username, "fe80::1", "", INTERFACE_SSH);
    }
    modifyLineData("/etc/user/rules", "1", "1,10.0.0.0/8,,,1,\n");
    updateFile("/etc/user/rules", 1);
    rules.clear();
    getUserRule(rules);
    ::unlink("/tmp/log"); // it only grows
    return 0;
}
