// SPDX-License-Identifier: Apache-2.0
// The texts the daemons show for interfaces, errors and refusals.
#include "access/result_texts.h"

const char* userInterfaceStr[12] = {
    "INTERFACE_WEB",   "INTERFACE_IPMI",    "INTERFACE_SSH",
    "INTERFACE_LOCAL", "INTERFACE_REDFISH", "INTERFACE_SNMP",
};

const char* ErrorCodeStr[10] = {
    "INTERNAL ERROR",
    "PARAMETER IP ERROR",
    "PARAMETER MAC ERROR",
    "PARAMETER TIME ERROR",
    "PARAMETER PRIVILEGE ERROR",
    "OPENFILE FAILED",
    "WRITE FILE FAILED",
    "FILE NOT EXIST",
    "PARAMETER RULEID ERROR",
    "LDAP PARAMETER ERROR",
};

const char* FailReasonStr[6] = {
    "USER PRIVILEGE NOT MATCH", "USER IP NOT MATCH",   "USER MAC NOT MATCH",
    "USER TIME NOT MATCH",      "USER RULE NOT MATCH", "USER RULEID NOT EXIST",
};

namespace kv::detail
{

const char* error_code_text(unsigned index)
{
    return index < std::size(ErrorCodeStr) ? ErrorCodeStr[index] : "";
}

const char* interface_text(userInterface iface)
{
    const auto index = static_cast<unsigned>(iface);
    // Entries without an interface are null; glibc prints those "(null)",
    // the text the log lines of such a value have always had.
    if (index >= std::size(userInterfaceStr) ||
        userInterfaceStr[index] == nullptr)
    {
        return "(null)";
    }
    return userInterfaceStr[index];
}

} // namespace kv::detail
