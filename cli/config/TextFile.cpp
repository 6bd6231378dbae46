// SPDX-License-Identifier: Apache-2.0
#include "cli/config/TextFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "shared/FileDescriptor.h"

namespace Kemffdc::Config {
namespace {

constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;
constexpr std::size_t kPiece = 16384;

Outcome Unreadable(const TextFile& file) {
    return file.Unusable(std::string("cannot be read: ") + std::strerror(errno) + ".");
}

}  // namespace

Outcome TextFile::Unusable(const std::string& why) const {
    return Failure(kLocalFile, "The " + what + " " + path + " " + why);
}

Outcome ReadTextFile(std::size_t most, TextFile& file) {
    const shared::FileDescriptor open(
        ::open(file.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!open.IsOpen() && (errno == ENOENT || errno == ENOTDIR)) return {};
    if (!open.IsOpen() || fstat(open.Get(), &file.status) != 0) return Unreadable(file);
    file.exists = true;
    if (!S_ISREG(file.status.st_mode)) return file.Unusable("is not a plain file.");
    std::array<char, kPiece> piece;  // files are far smaller than they may be
    while (file.text.size() <= most) {
        const ssize_t got = read(open.Get(), piece.data(), piece.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return Unreadable(file);
        if (got == 0) return {};
        file.text.append(piece.data(), static_cast<std::size_t>(got));
    }
    return file.Unusable("is larger than " + std::to_string(most >> 20) + " MiB.");
}

Outcome RefuseForeignFile(const TextFile& file, const std::string& so) {
    if (file.status.st_uid != 0 && file.status.st_uid != geteuid()) {
        return file.Unusable("belongs to another user, " + so + ".");
    }
    if ((file.status.st_mode & kOthersWrite) != 0) {
        return file.Unusable("can be written by others, " + so +
                             ". Take that right away: chmod go-w " + file.path);
    }
    return {};
}

Outcome RefuseSharedFile(const TextFile& file) {
    if (file.status.st_uid != 0 && file.status.st_uid != geteuid()) {
        return file.Unusable("belongs to another user.");
    }
    if ((file.status.st_mode & kOthers) != 0) {
        return file.Unusable("can be read or written by others. Take that right away: chmod go= " +
                             file.path);
    }
    return {};
}

}  // namespace Kemffdc::Config
