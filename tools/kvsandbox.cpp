// kvsandbox: runs a command in a private view of the BMC's fixed paths
// (/tmp, /run, /var, /media, /sys, a writable /etc), its own IPC and network
// namespaces, so that libkv programs can be tried without touching the host.
#include "sandbox.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

int main(int argc, char** argv)
{
    int first = 1;
    if (first < argc && std::strcmp(argv[first], "--") == 0)
    {
        ++first;
    }
    if (first >= argc)
    {
        std::fprintf(stderr, "usage: kvsandbox [--] command [argument...]\n");
        return 2;
    }
    kv::sandbox::enter();
    execvp(argv[first], argv + first);
    std::fprintf(stderr, "kvsandbox: cannot run %s: %s\n", argv[first],
                 std::strerror(errno));
    return 127;
}
