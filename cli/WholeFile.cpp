// SPDX-License-Identifier: Apache-2.0
#include "cli/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "shared/FileDescriptor.h"

namespace Kemffdc {
namespace {

namespace fs = std::filesystem;

bool WriteAll(int file, const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t written = write(file, text.data() + at, text.size() - at);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        at += static_cast<std::size_t>(written);
    }
    return true;
}

// The new name is only safe once the folder is.
bool SyncFolder(const std::string& folder) {
    const shared::FileDescriptor open(
        ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
    return !open.IsOpen() || fsync(open.Get()) == 0 || errno == EINVAL;  // it has no such thing
}

bool IsSomethingElse(const std::string& path) {
    struct stat found {};
    return stat(path.c_str(), &found) == 0 && !S_ISREG(found.st_mode);
}

}  // namespace

Outcome WriteWholeFile(const std::string& path, const std::string& text, mode_t mode) {
    const auto failed = [&path](const std::string& why) {
        return Failure(kLocalFile, path + " cannot be written: " + why + ".");
    };
    if (IsSomethingElse(path)) return failed("there is something else of that name");
    const fs::path target(path);
    const std::string folder = target.has_parent_path() ? target.parent_path().string() : ".";
    const std::string fresh =
        folder + "/." + target.filename().string() + "." + std::to_string(getpid());
    (void)unlink(fresh.c_str());  // of a process that was killed
    shared::FileDescriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!file.IsOpen()) return failed(std::strerror(errno));
    const bool written = WriteAll(file.Get(), text) && fsync(file.Get()) == 0 &&
                         file.Close() == 0 && std::rename(fresh.c_str(), path.c_str()) == 0;
    if (!written) {
        const std::string why = std::strerror(errno);
        (void)unlink(fresh.c_str());
        return failed(why);
    }
    return SyncFolder(folder) ? Outcome{} : failed(std::strerror(errno));
}

}  // namespace Kemffdc
