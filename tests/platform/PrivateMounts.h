// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PLATFORM_PRIVATEMOUNTS_H
#define VARNEX_TESTS_PLATFORM_PRIVATEMOUNTS_H

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <string>

// From now on this process mounts for itself alone, as root or, where the system allows it, as
// anybody. False where it does not: the test is to be reported as skipped.
inline bool EnterPrivateMounts() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
        std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
    }
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

inline bool MountTmpfs(const std::string& folder, const std::string& options) {
    return mount("none", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

#endif
