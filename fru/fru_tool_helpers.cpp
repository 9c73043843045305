// SPDX-License-Identifier: Apache-2.0
// Small helpers of the fru tool: usage text, backups, file writes, command
// retries and the program's own directory.
#include "foundation/resources.h"

#include <libkv/fru.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr const char* kUsage[] = {
    " fru V3.1 Version(2021-07-08)",
    " fru help:",
    " -c\tCreate new default fru.ini configuare file",
    " -b Create bin file form fru.ini",
    "  IP user passwd FruID -w   fru.ini\twrite fru.ini config file to fru "
    "flash",
    "\t IP: bmc IP address",
    " example:./fru 192.168.1.100 root Pa55wrd 1  -w fru.ini",
    " IP user passwd FruID -w  \ttitle  key  value",
    "\tIP: bmc IP address",
    "\tuser: bmc user",
    "    passwd: bmc password",
    "    FruID: bmc fru Device ID",
    " \ttitle :ChassisInfoArea BoardInfoArea ProductInfoArea",
    "\tkey :title vlaue child option ",
    "\t\tChassisInfoArea:Type SerialNum PartNum",
    "\t\tBoardInfoArea:Manufacturer ProductName SerialNum PartNum "
    "CustomDataString",
    "\t\tProductInfoArea: Manufacturer ProductName SerialNum PartNum Version "
    "AssetTag",
    "\tvalue:the string you write to fru",
    " example: ./fru 192.168.1.100 root Pa55wrd 0  -w ProductInfoArea "
    "SerialNum  sn000xxxxxxx",
};

// Writes `length` bytes to a stream opened with `mode`: 0, or 1 (after the
// caller's message) when it cannot be opened.
template <typename Complaint>
int write_stream(const char* path, const char* mode, long offset,
                 const uint8_t* buffer, std::size_t length, Complaint complain)
{
    kv::detail::UniqueFile file =
        path == nullptr ? nullptr : kv::detail::open_file(path, mode);
    if (!file)
    {
        complain();
        return 1;
    }
    std::fseek(file.get(), offset, SEEK_SET);
    if (buffer != nullptr && length > 0)
    {
        std::fwrite(buffer, 1, length, file.get());
    }
    return 0;
}

} // namespace

void help(void)
{
    for (const char* line : kUsage)
    {
        std::printf("%s\n", line);
    }
}

int backup_fru_bin(const uint8_t* buffer, int length)
{
    return write_stream(
        "fru.bat", "w+", 0, buffer,
        static_cast<std::size_t>(std::max(length, 0)),
        [] { std::printf("%s: open file fru.bat fail \n", "backup_fru_bin"); });
}

int WriteFile(const char* path, const uint8_t* buffer, uint16_t offset,
              uint16_t length)
{
    return write_stream(path, "wb+", offset, buffer, length, [path] {
        std::printf("%s: open %s file fail\n", "WriteFile",
                    path == nullptr ? "(null)" : path);
    });
}

int write_fru_cmd(const char* command)
{
    // The 21st run is made but no longer counts as success.
    constexpr int kCountedRuns = 20;
    if (command == nullptr)
    {
        return -1;
    }
    for (int run = 1; run <= kCountedRuns + 1; ++run)
    {
        if (std::system(command) == 0)
        {
            return run <= kCountedRuns ? 0 : -1;
        }
    }
    return -1;
}

int GetCurrentPath(char* destination, const char* name)
{
    constexpr std::size_t kCommandLine = 256;
    constexpr std::size_t kLast = 512;
    if (destination == nullptr)
    {
        return 0;
    }
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/cmdline",
                  static_cast<int>(::getpid()));
    kv::detail::UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
    char command[kCommandLine] = {};
    const ssize_t got = fd ? ::read(fd.get(), command, sizeof command) : -1;
    if (got <= 0)
    {
        return 0;
    }
    // The program as started: the first argument, up to its last '/'.
    const std::size_t program = strnlen(command, sizeof command);
    std::size_t directory = program;
    while (directory > 0 && command[directory - 1] != '/')
    {
        --directory;
    }
    std::memset(destination, 0, kCommandLine);
    std::memcpy(destination, command, directory);
    if (name != nullptr)
    {
        std::memcpy(destination + directory, name,
                    std::min(std::strlen(name), kLast - directory));
    }
    destination[kLast] = '\0';
    return 0;
}
