// SPDX-License-Identifier: Apache-2.0
// The rule and privilege files are edited by hand too: any text in them must
// read, check a login and be rewritten without a stray read or write. The
// target runs in the private view of the test sandbox, so /etc/user and
// /tmp/log are its own.
#include "fuzz_input.h"
#include "sandbox.h"

#include <libkv/access.h>

#include <sys/stat.h>
#include <unistd.h>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kv::sandbox::enter();
    ::mkdir("/etc/user", 0755);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
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
    // The log only grows; it is not what is under test.
    ::unlink("/tmp/log");
    return 0;
}
