// SPDX-License-Identifier: Apache-2.0
// A private view of the machine for tests and the simulator.
//
// The library opens fixed paths (/tmp/log, /run/..., /etc/snmp/..., /sys/...)
// and System V segments with fixed keys. Inside the sandbox those paths and
// keys belong to the calling process alone: it runs in its own mount, IPC and
// network namespaces (and a user namespace when not root), with fresh tmpfs
// over /tmp, /run, /var, /media, /sys and /dev/shm, a writable overlay over
// /etc and an empty tmpfs over its own /proc/self/net.
#pragma once

#include <string>
#include <vector>

namespace kv::sandbox
{

// Enters the namespaces and mounts the private file systems. Must be called
// while the process has a single thread. Ends the process with a message on
// standard error if any step fails: nothing may run against the host's paths.
// The working directory stays where it was.
//
// Inside /tmp, /run, /var, /media and /dev/shm the project tree (source or
// build folder) of the working directory, of the running program and of each
// of `needed_files` stays visible; a folder that belongs to no project stays
// visible on its own. Files lying directly in one of those directories are
// hidden all the same.
void enter(const std::vector<std::string>& needed_files = {});

// Whether `dir` is one of the directories whose folders enter() can keep.
bool keeps_folders_in(const std::string& dir);

// Replaces every private file system and the IPC namespace with empty ones,
// so that the next test starts from a clean state. Working directory: /tmp.
void reset();

} // namespace kv::sandbox
