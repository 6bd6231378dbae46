// SPDX-License-Identifier: Apache-2.0
#include "cli/history/StateFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cli/UserFolders.h"

namespace Kemffdc::History {
namespace {

constexpr char kName[] = "/kemffdc";
constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;

Outcome Trouble(const std::string& folder, const std::string& what) {
    return Failure(kLocalFile,
                   "The state folder " + folder + " " + what + " Choose another with --state-dir.");
}

// The first error, where it matters; 0 where there is none.
int MakeWithParents(const std::string& folder) {
    int why = 0;
    for (std::size_t end = 0; end != std::string::npos;) {
        end = folder.find('/', end + 1);
        const bool failed = mkdir(folder.substr(0, end).c_str(), 0700) != 0 && errno != EEXIST;
        if (failed && why == 0) why = errno;
    }
    return why;
}

}  // namespace

std::string StateFolder(const std::string& given) {
    if (!given.empty()) return given;
    const std::string state = XdgFolder("XDG_STATE_HOME", "/.local/state");
    return state.empty() ? "" : state + kName;
}

Outcome MakeStateFolder(const std::string& folder) {
    if (folder.empty()) {
        return Failure(kLocalFile,
                       "There is no home folder to keep a state folder in. Name one "
                       "with --state-dir.");
    }
    const int why = MakeWithParents(folder);
    struct stat found {};
    if (stat(folder.c_str(), &found) != 0) {
        return Trouble(folder, std::string("cannot be made: ") + std::strerror(why) + ".");
    }
    if (!S_ISDIR(found.st_mode)) return Trouble(folder, "is not a folder.");
    if (found.st_uid != geteuid()) return Trouble(folder, "belongs to another user.");
    if ((found.st_mode & kOthersWrite) != 0) return Trouble(folder, "can be written by others.");
    return {};
}

}  // namespace Kemffdc::History
