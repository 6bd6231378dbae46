// SPDX-License-Identifier: Apache-2.0
#include "cli/Archive.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>

#include "Transfer.h"

#include "shared/FileDescriptor.h"

namespace Kemffdc {
namespace {

namespace fs = std::filesystem;

constexpr int kMaxSameNames = 1000;
constexpr char kWorkFolder[] = ".kemffdc-XXXXXX";  // a pattern of mkdtemp(3)
constexpr char kRecord[] = ".record";
constexpr int kMaxStarts = 100;
constexpr std::time_t kLongestKept = std::time_t{7} * 24 * 3600;
constexpr std::time_t kLongestStart = 60;  // seconds from a working folder's making to its lock

std::string Why() { return std::string(std::strerror(errno)) + "."; }

// "a.tar.gz", 2 -> "a-2.tar.gz"; a folder has no extension.
std::string Numbered(const std::string& name, bool folder, int number) {
    if (number == 1) return name;
    const std::size_t tar = name.rfind(".tar.");
    const std::size_t dot = tar != std::string::npos ? tar : name.rfind('.');
    const bool extension = !folder && dot != std::string::npos && dot != 0;
    const std::size_t end = extension ? dot : name.size();
    return name.substr(0, end) + "-" + std::to_string(number) + name.substr(end);
}

// 0, or errno.
int Reserve(const std::string& path, bool folder) {
    if (folder) return mkdir(path.c_str(), 0700) == 0 ? 0 : errno;
    const int reserved = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
    if (reserved < 0) return errno;
    close(reserved);
    return 0;
}

// 0, or errno. File systems differ in what they offer: a rename that replaces nothing, a second
// link, or (vfat, some network shares) neither; then the name is reserved first.
int MoveWithoutReplacing(const std::string& from, const std::string& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    if (link(from.c_str(), to.c_str()) == 0) {
        unlink(from.c_str());
        return 0;
    }
    if (errno == EEXIST) return errno;
    std::error_code ignored;
    const bool folder = fs::is_directory(from, ignored);
    if (const int why = Reserve(to, folder); why != 0) return why;
    if (rename(from.c_str(), to.c_str()) == 0) return 0;  // an empty folder may be replaced
    const int why = errno;
    folder ? rmdir(to.c_str()) : unlink(to.c_str());
    return why;
}

bool IsThere(const std::string& path) {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0;
}

// 0, or errno.
int WriteFile(const std::string& path, const std::string& text) {
    const shared::FileDescriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!file.IsOpen()) return errno;
    const ssize_t written = write(file.Get(), text.data(), text.size());
    if (written < 0) return errno;
    return static_cast<std::size_t>(written) == text.size() ? 0 : ENOSPC;
}

bool IsWorkFolderName(const std::string& name) {
    const std::string pattern = kWorkFolder;
    const std::size_t fixed = pattern.find('X');
    return name.size() == pattern.size() && name.compare(0, fixed, pattern, 0, fixed) == 0;
}

// A folder opened and locked; closed with the object.
class LockedFolder {
public:
    enum class State { kLocked, kTaken, kGone, kNoLocks };

    explicit LockedFolder(const std::string& path)
        : m_descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
        if (m_descriptor < 0) {
            m_state = errno == ENOENT ? State::kGone : State::kNoLocks;
            return;
        }
        if (flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
            m_state = errno == EWOULDBLOCK ? State::kTaken : State::kNoLocks;
            return;
        }
        // Whoever had the lock before may have removed the folder.
        struct stat held {};
        struct stat named {};
        const bool same = fstat(m_descriptor, &held) == 0 && lstat(path.c_str(), &named) == 0 &&
                          held.st_ino == named.st_ino && held.st_dev == named.st_dev;
        m_state = same ? State::kLocked : State::kGone;
        m_owner = held.st_uid;
        m_changed = held.st_mtime;
    }
    ~LockedFolder() {
        if (m_descriptor >= 0) close(m_descriptor);
    }
    LockedFolder(const LockedFolder&) = delete;
    LockedFolder& operator=(const LockedFolder&) = delete;

    State Is() const { return m_state; }
    bool IsOurs() const { return m_owner == geteuid(); }
    std::time_t Age() const { return std::time(nullptr) - m_changed; }
    int Release() { return std::exchange(m_descriptor, -1); }  // still open and locked

private:
    int m_descriptor;
    State m_state = State::kNoLocks;
    uid_t m_owner = 0;
    std::time_t m_changed = 0;
};

bool IsLeftOver(const LockedFolder& lock, const std::string& path) {
    if (lock.Is() != LockedFolder::State::kLocked || !lock.IsOurs()) return false;
    // Nothing in it: a run may be about to lock it.
    std::error_code gone;  // its run has noticed the lock, and starts again elsewhere
    const bool empty = fs::is_empty(path, gone);
    return !gone && (!empty || lock.Age() > kLongestStart);
}

// A part that nobody has come back for is not kept for ever.
bool IsKept(const LockedFolder& lock, const std::string& path,
            const std::vector<std::string>& kept) {
    return lock.Age() < kLongestKept &&
           std::any_of(kept.begin(), kept.end(), [&path](const std::string& file) {
               return fs::path(file).parent_path() == path;
           });
}

bool IsPart(const fs::path& path) { return path.extension() == Varnex::kPartSuffix; }

// Removes what is in the folder, and the folder where nothing stays.
void RemoveButParts(const std::string& folder, std::error_code& error) {
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        std::error_code ignored;
        if (!IsPart(at->path())) fs::remove_all(at->path(), ignored);
    }
    if (!error && fs::is_empty(folder, error) && !error) fs::remove(folder, error);
}

std::uint64_t BytesBelow(const std::string& folder) {
    std::uint64_t bytes = 0;
    std::error_code error;
    for (fs::recursive_directory_iterator at(folder, error), end; !error && at != end;
         at.increment(error)) {
        std::error_code ignored;
        const std::uintmax_t size = at->is_symlink(ignored) ? 0 : at->file_size(ignored);
        if (!ignored) bytes += size;
    }
    return bytes;
}

struct CloseFile {
    void operator()(std::FILE* file) const { (void)std::fclose(file); }
};
struct FreeDigest {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

std::string Hex(const unsigned char* bytes, unsigned length) {
    std::string text;
    for (unsigned i = 0; i < length; ++i) {
        char digits[3];
        (void)std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

}  // namespace

std::string RecordPath(const std::string& path) { return path + ".json"; }

OutputFolder::~OutputFolder() { Discard(); }

Outcome OutputFolder::Open(const std::string& folder) {
    const std::string shown = "The output folder " + folder;
    const bool made = mkdir(folder.c_str(), 0777) == 0;
    if (!made && errno != EEXIST) {
        return Failure(kLocalFile, shown + " does not exist and cannot be made: " + Why());
    }
    std::error_code error;
    const fs::path absolute = fs::canonical(folder, error);
    if (error || !fs::is_directory(absolute, error)) {
        return Failure(kLocalFile, shown + " is not a folder.");
    }
    std::lock_guard<std::mutex> hold(m_lock);
    m_folder = absolute.string();
    m_made = made;
    return MakeWorkFolder(shown);
}

// The download gets a folder that is ours alone: nobody can plant a link at its name, and one
// removal cleans up.
Outcome OutputFolder::MakeWorkFolder(const std::string& shown) {
    for (int start = 0; start < kMaxStarts; ++start) {
        std::string work = (fs::path(m_folder) / kWorkFolder).string();
        if (mkdtemp(work.data()) == nullptr) {
            return Failure(kLocalFile, shown + " cannot be written to: " + Why() +
                                           " Choose another with --output.");
        }
        // Until it is locked, another run may look at it, with the lock held, or even remove it.
        LockedFolder lock(work);
        const bool lost =
            lock.Is() == LockedFolder::State::kTaken || lock.Is() == LockedFolder::State::kGone;
        if (lost) {
            rmdir(work.c_str());
            continue;
        }
        m_hold = lock.Release();
        m_work = work;
        return {};
    }
    return Failure(kLocalFile, shown + " loses each folder that is made in it.");
}

std::vector<OutputFolder::LeftOver> OutputFolder::RemoveLeftOvers(
    const std::vector<std::string>& kept) const {
    std::vector<LeftOver> removed;
    std::error_code error;
    for (fs::directory_iterator at(m_folder, error), end; !error && at != end;
         at.increment(error)) {
        const std::string name = at->path().filename().string();
        const std::string path = at->path().string();
        if (!IsWorkFolderName(name) || path == m_work) continue;
        const LockedFolder lock(path);
        if (!IsLeftOver(lock, path) || IsKept(lock, path, kept)) continue;
        const std::uint64_t bytes = BytesBelow(path);
        std::error_code failed;
        fs::remove_all(path, failed);
        if (!failed) removed.push_back({name, bytes});
    }
    return removed;
}

bool OutputFolder::TakeOver(const std::string& path, const std::string& name) const {
    if (rename(path.c_str(), WorkPath(name).c_str()) != 0) return false;
    const fs::path folder = fs::path(path).parent_path();
    if (IsWorkFolderName(folder.filename().string())) rmdir(folder.c_str());
    return true;
}

std::string OutputFolder::WorkPath(const std::string& name) const {
    return (fs::path(m_work) / name).string();
}

Outcome OutputFolder::Deliver(const std::string& from, const std::string& name, std::string& path) {
    std::error_code ignored;
    const bool folder = fs::is_directory(WorkPath(from), ignored);
    int why = EEXIST;
    for (int number = 1; why == EEXIST && number <= kMaxSameNames; ++number) {
        path = (fs::path(m_folder) / Numbered(name, folder, number)).string();
        if (!IsThere(RecordPath(path))) why = MoveWithoutReplacing(WorkPath(from), path);
    }
    if (why != 0) {
        return Failure(kLocalFile,
                       "Cannot move the archive to " + path + ": " + std::strerror(why) + ".");
    }
    m_delivered = true;
    return {};
}

Outcome OutputFolder::DeliverRecord(const std::string& path, const std::string& text) {
    const std::string work = WorkPath(kRecord);
    int why = WriteFile(work, text);
    if (why == 0) why = MoveWithoutReplacing(work, RecordPath(path));
    if (why == 0) return {};
    return Failure(kLocalFile, "The record " + RecordPath(path) +
                                   " could not be written: " + std::strerror(why) + ".");
}

void OutputFolder::Discard() {
    std::lock_guard<std::mutex> hold(m_lock);
    // A download that goes on may put a file there while it is emptied.
    for (int round = 0; round < 10 && !m_work.empty(); ++round) {
        std::error_code error;
        m_keepsParts ? RemoveButParts(m_work, error) : void(fs::remove_all(m_work, error));
        if (!error) break;
    }
    if (m_hold >= 0) close(std::exchange(m_hold, -1));
    if (m_made && !m_delivered) rmdir(m_folder.c_str());  // fails where something is in it: good
}

Outcome Measure(const std::string& path, const std::function<bool()>& stop, std::uint64_t& size,
                std::string& sha256) {
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
    const std::unique_ptr<EVP_MD_CTX, FreeDigest> digest(EVP_MD_CTX_new());
    if (!file) return Failure(kLocalFile, "Cannot read the archive " + path + ": " + Why());
    if (!digest || EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr) != 1) {
        return Failure(kLocalFile, "Cannot compute a SHA-256.");
    }
    std::vector<char> piece(std::size_t{256} * 1024);
    std::uint64_t total = 0;
    while (const std::size_t got = std::fread(piece.data(), 1, piece.size(), file.get())) {
        if (stop()) return Failure(kInterrupted, "Interrupted.");
        EVP_DigestUpdate(digest.get(), piece.data(), got);
        total += got;
    }
    if (std::ferror(file.get()) != 0) {
        return Failure(kLocalFile, "Cannot read the archive " + path + ": " + Why());
    }
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_DigestFinal_ex(digest.get(), hash, &length);
    size = total;
    sha256 = Hex(hash, length);
    return {};
}

}  // namespace Kemffdc
