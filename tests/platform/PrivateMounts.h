// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PLATFORM_PRIVATEMOUNTS_H
#define VARNEX_TESTS_PLATFORM_PRIVATEMOUNTS_H

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <string>

// A namespace of this process alone, as root or, where the system allows it, as anybody who then
// counts as root in it. False where it cannot be had: the test is to be reported as skipped.
inline bool EnterNamespace(int kind) {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(kind) == 0) return true;
    if (unshare(CLONE_NEWUSER | kind) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
    return true;
}

// From now on this process mounts for itself alone.
inline bool EnterPrivateMounts() {
    return EnterNamespace(CLONE_NEWNS) &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

inline bool MountTmpfs(const std::string& folder, const std::string& options) {
    return mount("none", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

#endif
