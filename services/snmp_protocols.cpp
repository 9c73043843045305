// SPDX-License-Identifier: Apache-2.0
// SNMPv3 authentication and privacy protocols and their texts in snmpd.conf.
#include <libkv/services.h>

#include <strings.h>

#include <array>
#include <cstddef>

namespace
{

constexpr std::array<const char*, SNMP_V3_AUTHEN_UNKNOWN> kAuthenTexts = {
    "SHA", "SHA-256", "SHA-384", "SHA-512", "SHA-224", "MD5"};
constexpr std::array<const char*, SNMP_V3_ENCRYPT_UNKNOWN> kEncryptTexts = {
    "DES", "AES"};

// Position of `text` in `texts` ignoring case, or the table's size.
template <std::size_t N>
int index_of(const std::array<const char*, N>& texts, const char* text)
{
    std::size_t at = 0;
    while (text != nullptr && at < N && ::strcasecmp(texts[at], text) != 0)
    {
        ++at;
    }
    return static_cast<int>(text == nullptr ? N : at);
}

template <std::size_t N>
const char* text_of(const std::array<const char*, N>& texts, int value)
{
    return value >= 0 && static_cast<std::size_t>(value) < N ? texts[value]
                                                             : nullptr;
}

} // namespace

extern "C" SNMP_V3_AUTHEN snmp_v3_authen_atoi(const char* text)
{
    return static_cast<SNMP_V3_AUTHEN>(index_of(kAuthenTexts, text));
}

extern "C" const char* snmp_v3_authen_itoa(SNMP_V3_AUTHEN authen)
{
    return text_of(kAuthenTexts, authen);
}

extern "C" SNMP_V3_ENCRYPT snmp_v3_encrypt_atoi(const char* text)
{
    return static_cast<SNMP_V3_ENCRYPT>(index_of(kEncryptTexts, text));
}

extern "C" const char* snmp_v3_encrypt_itoa(SNMP_V3_ENCRYPT encrypt)
{
    return text_of(kEncryptTexts, encrypt);
}
