// SPDX-License-Identifier: Apache-2.0
#include "PartFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "Transfer.h"
#include "shared/Hex.h"

namespace {

std::error_code Failure(int number) { return {number, std::generic_category()}; }

using shared::FileDescriptor;
using Varnex::kPartSuffix;
constexpr std::size_t kPartSize = sizeof kPartSuffix - 1;

// libcurl hands over 16 KiB at a time. This much at once takes fewer calls, and is still in the
// processor's cache when it is hashed.
constexpr std::size_t kGathered = 256UL * 1024;

bool IsOwnAlone(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_uid == ::geteuid() && status.st_nlink == 1 &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool IsPartName(const std::string& name) {
    return name.size() >= kPartSize &&
           name.compare(name.size() - kPartSize, kPartSize, kPartSuffix) == 0;
}

bool IsFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('\0') == std::string::npos &&
           !IsPartName(name);
}

// Where a file system knows no locks, nobody can hold one.
bool IsLockedByAnother(int fd) {
    return ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace

PartFile::~PartFile() { Discard(); }

std::error_code PartFile::Create(const std::string& path) {
    const std::error_code error = OpenFolder(path);
    return error ? error : OpenInFolder();
}

std::error_code PartFile::Continue(const std::string& path) {
    if (const std::error_code error = OpenFolder(path)) return error;
    return OpenKept() ? std::error_code() : OpenInFolder();
}

std::error_code PartFile::OpenInFolder() {
    // More than one pass where several start at the same moment; each pass, one of them gets on.
    constexpr int kPasses = 16;
    std::error_code error;
    for (int pass = 0; pass < kPasses; ++pass) {
        error = OpenNew();
        if (!error || error.value() != EEXIST) return error;
        if ((error = RemoveLeftover())) return error;
    }
    return Failure(EBUSY);
}

std::error_code PartFile::OpenFolder(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    m_name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (!IsFileName(m_name) || path.find('\0') != std::string::npos) return Failure(EINVAL);
    m_partName = m_name + kPartSuffix;
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    m_folder = FileDescriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!m_folder.IsOpen()) return Failure(errno);
    struct stat target {};
    const bool isFolder =
        ::fstatat(m_folder.Get(), m_name.c_str(), &target, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISDIR(target.st_mode);
    return isFolder ? Failure(EISDIR) : std::error_code();
}

// False leaves everything as it was.
bool PartFile::OpenKept() {
    FileDescriptor file(::openat(m_folder.Get(), m_partName.c_str(),
                                 O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.IsOpen()) return false;
    struct stat status {};
    if (IsLockedByAnother(file.Get()) || !StandsUnderItsName(file.Get()) ||
        ::fstat(file.Get(), &status) != 0 || !IsOwnAlone(status) ||
        ::fchmod(file.Get(), 0600) != 0 || ::lseek(file.Get(), 0, SEEK_END) != status.st_size) {
        return false;
    }
    m_file = std::move(file);
    m_kept = static_cast<std::uint64_t>(status.st_size);
    return true;
}

// EEXIST where another one stands under the name, at once or again.
std::error_code PartFile::OpenNew() {
    FileDescriptor file(::openat(m_folder.Get(), m_partName.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.IsOpen()) return Failure(errno);
    // Between the two calls it looks like a leftover, and somebody may have removed it.
    if (IsLockedByAnother(file.Get()) || !StandsUnderItsName(file.Get())) return Failure(EEXIST);
    m_file = std::move(file);
    return {};
}

std::error_code PartFile::RemoveLeftover() const {
    const FileDescriptor file(::openat(m_folder.Get(), m_partName.c_str(),
                                       O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.IsOpen() && errno == ENOENT) return {};
    if (file.IsOpen() && IsLockedByAnother(file.Get())) return Failure(EBUSY);
    if (file.IsOpen() && !StandsUnderItsName(file.Get())) return {};
    const bool gone = ::unlinkat(m_folder.Get(), m_partName.c_str(), 0) == 0 || errno == ENOENT;
    return gone ? std::error_code() : Failure(errno);
}

bool PartFile::StandsUnderItsName(int fd) const {
    struct stat opened {};
    struct stat named {};
    return ::fstat(fd, &opened) == 0 &&
           ::fstatat(m_folder.Get(), m_partName.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool PartFile::Hash() {
    m_digest.reset(EVP_MD_CTX_new());
    return m_digest != nullptr && EVP_DigestInit_ex(m_digest.get(), EVP_sha256(), nullptr) == 1;
}

std::error_code PartFile::HashKept(const std::function<bool()>& goOn) {
    std::vector<char> piece(kGathered);
    std::uint64_t at = 0;
    while (at < m_kept) {
        if (!goOn()) return Failure(ECANCELED);
        const ssize_t got =
            ::pread(m_file.Get(), piece.data(), piece.size(), static_cast<off_t>(at));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return Failure(got < 0 ? errno : EIO);  // nobody else writes it
        EVP_DigestUpdate(m_digest.get(), piece.data(), static_cast<std::size_t>(got));
        at += static_cast<std::uint64_t>(got);
    }
    return {};
}

std::error_code PartFile::Restart() {
    m_gathered.clear();
    m_kept = 0;
    if (::ftruncate(m_file.Get(), 0) != 0 || ::lseek(m_file.Get(), 0, SEEK_SET) != 0)
        return Failure(errno);
    return !m_digest || Hash() ? std::error_code() : Failure(ENOMEM);
}

std::error_code PartFile::Append(const char* data, std::size_t size) {
    while (size > 0) {
        if (m_gathered.empty()) m_gathered.reserve(kGathered);
        const std::size_t piece = std::min(size, kGathered - m_gathered.size());
        m_gathered.insert(m_gathered.end(), data, data + piece);
        data += piece;
        size -= piece;
        if (m_gathered.size() < kGathered) break;
        if (const std::error_code error = WriteGathered()) return error;
    }
    return {};
}

std::error_code PartFile::WriteGathered() {
    const char* data = m_gathered.data();
    std::size_t size = m_gathered.size();
    if (m_digest) EVP_DigestUpdate(m_digest.get(), data, size);
    while (size > 0) {
        const ssize_t written = ::write(m_file.Get(), data, size);
        if (written == 0) return Failure(EIO);  // else this would go on for ever
        if (written < 0) {
            if (errno == EINTR) continue;
            return Failure(errno);
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    m_gathered.clear();
    return {};
}

std::error_code PartFile::Keep(bool synced) {
    if (const std::error_code error = Finish(synced)) return error;
    m_file = FileDescriptor();
    return synced ? SyncFolder() : std::error_code();
}

std::error_code PartFile::Finish(bool synced) {
    if (const std::error_code error = WriteGathered()) return error;
    if (synced && ::fsync(m_file.Get()) != 0) return Failure(errno);
    if (const std::error_code error = Close()) return error;
    // Somebody may have removed or replaced it.
    return StandsUnderItsName(m_file.Get()) ? std::error_code() : Failure(ESTALE);
}

std::error_code PartFile::Commit(bool synced) {
    if (const std::error_code error = Finish(synced)) return error;
    if (::renameat(m_folder.Get(), m_partName.c_str(), m_folder.Get(), m_name.c_str()) != 0) {
        return Failure(errno);
    }
    EndHash();
    (void)::fstat(m_file.Get(), &m_status);
    m_file = FileDescriptor();
    return synced ? SyncFolder() : std::error_code();
}

// Through a descriptor of its own: the kept one is good for names alone. A folder that may not be
// read cannot be synchronised, and the file in it is whole.
std::error_code PartFile::SyncFolder() const {
    const FileDescriptor folder(::openat(m_folder.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool synced = !folder.IsOpen() || ::fsync(folder.Get()) == 0 || errno == EINVAL;
    return synced ? std::error_code() : Failure(errno);
}

// A second descriptor keeps the lock while the first one is closed, which is when a network file
// system reports that it could not keep the data.
std::error_code PartFile::Close() {
    FileDescriptor lock(::fcntl(m_file.Get(), F_DUPFD_CLOEXEC, 0));
    if (!lock.IsOpen()) return Failure(errno);
    std::swap(m_file, lock);
    return lock.Close() == 0 ? std::error_code() : Failure(errno);
}

void PartFile::EndHash() {
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    if (!m_digest || EVP_DigestFinal_ex(m_digest.get(), bytes, &size) != 1) return;
    m_sha256 = shared::ToHex(std::string(bytes, bytes + size));
}

void PartFile::Discard() {
    if (!m_file.IsOpen()) return;
    if (StandsUnderItsName(m_file.Get())) ::unlinkat(m_folder.Get(), m_partName.c_str(), 0);
    m_file = FileDescriptor();
}
