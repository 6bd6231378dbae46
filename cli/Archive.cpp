// SPDX-License-Identifier: Apache-2.0
#include "Archive.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

namespace Kemffdc {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxHost = 60;
constexpr std::size_t kMaxName = 120;
constexpr int kMaxSameNames = 1000;

bool IsPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '+' || c == '-';
}

std::string MadeSafe(const std::string& text) {
    std::string safe;
    for (const char c : text) safe.push_back(IsPlain(c) ? c : '_');
    return safe.substr(std::min(safe.find_first_not_of(".-"), safe.size()));
}

std::string LastComponent(const std::string& path) {
    return path.substr(path.find_last_of("/\\") + 1);
}

// The end is kept: there stands the extension.
std::string Tail(const std::string& text, std::size_t length) {
    return text.size() <= length ? text : MadeSafe(text.substr(text.size() - length));
}

std::string Why() { return std::string(std::strerror(errno)) + "."; }

// "a.tar.gz", 2 -> "a-2.tar.gz"
std::string Numbered(const std::string& name, int number) {
    if (number == 1) return name;
    const std::size_t tar = name.rfind(".tar.");
    const std::size_t dot = tar != std::string::npos ? tar : name.rfind('.');
    const std::size_t end = dot == std::string::npos || dot == 0 ? name.size() : dot;
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

std::string ArchiveName(const std::string& host, const std::tm& when, const std::string& bmcPath) {
    char time[32];
    (void)std::strftime(time, sizeof time, "_%Y%m%d-%H%M%S_", &when);
    std::string from = MadeSafe(host).substr(0, kMaxHost);
    if (from.empty()) from = "bmc";
    std::string name = Tail(MadeSafe(LastComponent(bmcPath)), kMaxName);
    if (name.empty()) name = "ffdc";
    return from + time + name;
}

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
    // The download gets a folder that is ours alone: nobody can plant a link at its name, and one
    // removal cleans up.
    std::string work = (absolute / ".kemffdc-XXXXXX").string();
    if (mkdtemp(work.data()) == nullptr) {
        return Failure(kLocalFile, shown + " cannot be written to: " + Why() +
                                       " Choose another with --output.");
    }
    m_work = work;
    return {};
}

std::string OutputFolder::WorkPath(const std::string& name) const {
    return (fs::path(m_work) / name).string();
}

Outcome OutputFolder::Deliver(const std::string& name, std::string& path) {
    const std::string from = WorkPath(name);
    int why = EEXIST;
    for (int number = 1; why == EEXIST && number <= kMaxSameNames; ++number) {
        path = (fs::path(m_folder) / Numbered(name, number)).string();
        why = MoveWithoutReplacing(from, path);
    }
    if (why != 0) {
        return Failure(kLocalFile,
                       "Cannot move the archive to " + path + ": " + std::strerror(why) + ".");
    }
    m_delivered = true;
    return {};
}

void OutputFolder::Discard() {
    std::lock_guard<std::mutex> hold(m_lock);
    if (m_work.empty()) return;
    // A download that goes on may put a file there while it is emptied.
    for (int round = 0; round < 10; ++round) {
        std::error_code error;
        fs::remove_all(m_work, error);
        if (!error) break;
    }
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
