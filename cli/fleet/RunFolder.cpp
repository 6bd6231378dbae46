// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/RunFolder.h"

#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "cli/Utc.h"

namespace Kemffdc::Fleet {
namespace {

constexpr mode_t kOwnerAlone = 0700;  // what a BMC tells is nobody else's business

Outcome CannotMake(const std::string& path, int error) {
    return Failure(kLocalFile, "The folder " + path + " cannot be made: " +
                                   std::generic_category().message(error) + ".");
}

// True: it is there, and was not before.
bool MakeFolder(const std::string& path) { return mkdir(path.c_str(), kOwnerAlone) == 0; }

Outcome MakeIfMissing(const std::string& path) {
    return MakeFolder(path) || errno == EEXIST ? Outcome() : CannotMake(path, errno);
}

}  // namespace

Outcome RunFolder::Make(const std::string& output) {
    std::error_code ignored;
    const std::string parent =
        std::filesystem::absolute(output, ignored).lexically_normal().string();
    Outcome made = MakeIfMissing(parent);
    if (!made.Ok()) return made;
    const std::string name =
        (std::filesystem::path(parent) / ("fleet_" + UtcForNames(std::time(nullptr)))).string();
    m_path = name;
    for (int more = 2; !MakeFolder(m_path); ++more) {
        if (errno != EEXIST) return CannotMake(m_path, errno);
        m_path = name + "-" + std::to_string(more);
    }
    return Lock();
}

Outcome RunFolder::Take(const std::string& path) {
    m_path = path;
    const Outcome made = MakeIfMissing(path);
    return made.Ok() ? Lock() : made;
}

Outcome RunFolder::MakeHostFolder(const std::string& path) { return MakeIfMissing(path); }

// Where there are no locks the journal knows whether a run lives.
Outcome RunFolder::Lock() {
    if (m_lock.Try(PathOf(kLock)) != History::FileLock::State::kTaken) return {};
    return Failure(kLocalFile, Cause::kLocked, "Another run is at work in " + m_path + ".");
}

}  // namespace Kemffdc::Fleet
