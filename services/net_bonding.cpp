// SPDX-License-Identifier: Apache-2.0
// Ethernet bonding of "bond0": the mode from the bonding driver's status
// file, changed by the platform's bonding script.
#include <libkv/foundation.h>
#include <libkv/services.h>

#include <strings.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr const char* kBondStatus = "/proc/net/bonding/bond0";

struct Mode
{
    const char* text;
    const char* command;
    const char* driver_words; // in the driver's "Bonding Mode" text
};

// By value: 0 no bonding, then the driver's modes 0 to 6.
constexpr std::array<Mode, KV_NET_MODE_UNKNOWN> kModes = {{
    {"eth", "sh /etc/default/obmc/bonding/bonding.sh disable", nullptr},
    {"bond0", "sh /etc/default/obmc/bonding/bonding.sh enable mode0",
     "round-robin"},
    {"bond1", "sh /etc/default/obmc/bonding/bonding.sh enable mode1",
     "active-backup"},
    {"bond2", "sh /etc/default/obmc/bonding/bonding.sh enable mode2", "xor"},
    {"bond3", "sh /etc/default/obmc/bonding/bonding.sh enable mode3",
     "broadcast"},
    {"bond4", "sh /etc/default/obmc/bonding/bonding.sh enable mode4",
     "802.3ad"},
    {"bond5", "sh /etc/default/obmc/bonding/bonding.sh enable mode5",
     "transmit"},
    {"bond6", "sh /etc/default/obmc/bonding/bonding.sh enable mode6",
     "adaptive"},
}};

const Mode* mode_of(int value)
{
    return value >= 0 && value < KV_NET_MODE_UNKNOWN ? &kModes[value] : nullptr;
}

} // namespace

extern "C" int net_mode_atoi(const char* text)
{
    for (int value = 0; text != nullptr && value < KV_NET_MODE_UNKNOWN; ++value)
    {
        if (::strcasecmp(kModes[value].text, text) == 0)
        {
            return value;
        }
    }
    return KV_NET_MODE_UNKNOWN;
}

extern "C" const char* net_mode_itoa(int mode)
{
    const Mode* known = mode_of(mode);
    return known != nullptr ? known->text : "unknow";
}

// Without the status file there is no bond, whatever interfaces exist.
extern "C" int net_mode_get(void)
{
    if (::access(kBondStatus, F_OK) != 0)
    {
        return KV_NET_MODE_ETH;
    }
    char text[128];
    if (read_conf_value_safe(kBondStatus, "Bonding Mode", text, sizeof text,
                             ':') != 0)
    {
        return KV_NET_MODE_UNKNOWN;
    }
    for (int value = 1; value < KV_NET_MODE_UNKNOWN; ++value)
    {
        if (::strcasestr(text, kModes[value].driver_words) != nullptr)
        {
            return value;
        }
    }
    return KV_NET_MODE_UNKNOWN;
}

// The script's command lines are fixed texts. A mode without one runs the
// empty command, which succeeds.
extern "C" int net_mode_set(int mode)
{
    const Mode* known = mode_of(mode);
    return std::system(known != nullptr ? known->command : "") == 0 ? 0 : -1;
}

extern "C" int net_bond_active_slave(char* name, size_t size)
{
    if (name == nullptr || size == 0)
    {
        return -1;
    }
    return read_conf_value_safe(kBondStatus, "Currently Active Slave", name,
                                size, ':') == 0
               ? 0
               : -1;
}
