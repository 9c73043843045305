// SPDX-License-Identifier: Apache-2.0
// kvsandbox: runs a command in a private view of the BMC's fixed paths
// (/tmp, /run, /var, /media, /sys, a writable /etc), its own IPC and network
// namespaces, so that libkv programs can be tried without touching the host.
#include "host_files.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int main(int argc, char** argv)
{
    constexpr const char* kUsage =
        "usage: kvsandbox [--] command [argument...]\n";
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0)
    {
        std::fputs(kUsage, stdout);
        return 0;
    }
    int first = 1;
    if (first < argc && std::strcmp(argv[first], "--") == 0)
    {
        ++first;
    }
    if (first >= argc)
    {
        std::fputs(kUsage, stderr);
        return 2;
    }
    const char* preload = std::getenv("LD_PRELOAD");
    const std::string hidden = kv::sandbox::enter_with(
        kv::sandbox::host_files(argv[first], preload ? preload : ""));
    if (!hidden.empty())
    {
        std::fprintf(stderr, "kvsandbox: %s\n", hidden.c_str());
        return 1;
    }
    execvp(argv[first], argv + first);
    std::fprintf(stderr, "kvsandbox: cannot run %s: %s\n", argv[first],
                 std::strerror(errno));
    return 127;
}
