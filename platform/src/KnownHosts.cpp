// SPDX-License-Identifier: Apache-2.0
#include "KnownHosts.h"

#include <fcntl.h>
#include <openssl/hmac.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <sstream>
#include <thread>
#include <vector>

#include "environment.h"
#include "shared/Base64.h"
#include "shared/FileDescriptor.h"

namespace {

constexpr unsigned kSshPort = 22;
constexpr std::size_t kLargestFile = 16UL * 1024 * 1024;  // bytes

const unsigned char* Bytes(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

// The first string of a key, which names its type.
std::string TypeOf(const std::string& blob) {
    if (blob.size() < 4) return "";
    std::size_t size = 0;
    for (std::size_t i = 0; i < 4; ++i) size = size << 8 | Bytes(blob)[i];
    return size <= blob.size() - 4 ? blob.substr(4, size) : "";
}

std::string Lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    std::istringstream stream(text);
    for (std::string piece; std::getline(stream, piece, separator);) pieces.push_back(piece);
    return pieces;
}

// "|1|salt|HMAC-SHA1 of the name": what ssh-keyscan -H writes.
bool IsHashOf(const std::string& entry, const std::string& name) {
    const std::vector<std::string> parts = Split(entry, '|');
    if (parts.size() != 4 || !parts[0].empty() || parts[1] != "1") return false;
    const std::string salt = shared::FromBase64(parts[2]);
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    unsigned size = 0;
    if (HMAC(EVP_sha1(), salt.data(), static_cast<int>(salt.size()), Bytes(name), name.size(),
             hash.data(), &size) == nullptr) {
        return false;
    }
    return shared::ToBase64({hash.begin(), hash.begin() + size}) == parts[3];
}

bool Names(const std::string& hosts, const std::string& name) {
    const std::vector<std::string> entries = Split(hosts, ',');
    return std::any_of(entries.begin(), entries.end(), [&name](const std::string& entry) {
        return entry == "*" || Lower(entry) == name || IsHashOf(entry, name);
    });
}

// One line of the file, its pieces empty where it has none.
struct Line {
    std::string marker, hosts, type, key;
};

Line Parse(const std::string& text) {
    Line line;
    std::istringstream stream(text);
    stream >> line.hosts;
    if (!line.hosts.empty() && line.hosts[0] == '@') {
        line.marker = line.hosts;
        stream >> line.hosts;
    }
    stream >> line.type >> line.key;
    return line;
}

bool IsKeyLine(const Line& line) {
    return !line.key.empty() && line.hosts[0] != '#' && line.marker != "@cert-authority";
}

KnownHosts::Result Search(const std::string& text, const std::string& name, const HostKey& key) {
    using Answer = KnownHosts::Answer;
    KnownHosts::Result result;
    std::istringstream lines(text);
    std::size_t number = 0;
    for (std::string raw; std::getline(lines, raw);) {
        ++number;
        const Line line = Parse(raw);
        if (!IsKeyLine(line)) continue;
        if (!Names(line.hosts, Lower(name))) continue;
        const bool same = line.type == key.Type() && line.key == key.Base64();
        if (line.marker == "@revoked") {
            if (same) return {Answer::kRevoked, number, {}};
        } else if (same) {
            result = {Answer::kKnown, number, {}};
        } else if (result.answer == Answer::kUnknown) {
            result = {Answer::kOther, number, {}};
        }
    }
    return result;
}

std::error_code Failure(int number) { return {number, std::generic_category()}; }

// A file, open and locked while the object lives.
class LockedFile {
public:
    LockedFile(const std::string& path, int flags, int lock)
        : m_file(::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0600)) {
        m_error = !m_file.IsOpen() ? Failure(errno) : Checked();
        if (!m_error) m_error = Lock(lock);
    }
    const std::error_code& Error() const { return m_error; }

    std::error_code Read(std::string& text) const {
        std::array<char, 65536> buffer{};
        while (text.size() < kLargestFile) {
            const ssize_t size = ::read(m_file.Get(), buffer.data(), buffer.size());
            if (size == 0) return {};
            if (size < 0 && errno != EINTR) return Failure(errno);
            if (size > 0) text.append(buffer.data(), static_cast<std::size_t>(size));
        }
        return Failure(EFBIG);
    }

    // All of it or nothing.
    std::error_code Append(const std::string& text) const {
        struct stat before {};
        if (::fstat(m_file.Get(), &before) != 0) return Failure(errno);
        const ssize_t written = ::write(m_file.Get(), text.data(), text.size());
        if (written == static_cast<ssize_t>(text.size())) return {};
        const int error = written < 0 ? errno : ENOSPC;
        if (written > 0 && ::ftruncate(m_file.Get(), before.st_size) != 0) return Failure(errno);
        return Failure(error);
    }

private:
    // What is no file has no end, or keeps its reader waiting for one who writes.
    std::error_code Checked() const {
        struct stat opened {};
        if (::fstat(m_file.Get(), &opened) != 0) return Failure(errno);
        if (S_ISDIR(opened.st_mode)) return Failure(EISDIR);
        if (!S_ISREG(opened.st_mode)) return Failure(EINVAL);
        return opened.st_size > static_cast<off_t>(kLargestFile) ? Failure(EFBIG)
                                                                 : std::error_code();
    }

    // Others hold it for a moment; longer than this nobody should.
    std::error_code Lock(int lock) const {
        constexpr std::chrono::milliseconds kPause(10);
        constexpr int kAttempts = 500;
        for (int i = 0; i < kAttempts; ++i) {
            if (::flock(m_file.Get(), lock | LOCK_NB) == 0) return {};
            if (errno != EWOULDBLOCK && errno != EINTR) return {};  // no locks here
            std::this_thread::sleep_for(kPause);
        }
        return Failure(EBUSY);
    }

    shared::FileDescriptor m_file;
    std::error_code m_error;
};

// Folders above `path`; what cannot be made shows when the file is opened.
void MakeFolders(const std::string& path) {
    for (std::size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1)) {
        ::mkdir(path.substr(0, at).c_str(), 0700);
    }
}

std::string Home() {
    std::string home = EnvironmentText("HOME");
    if (!home.empty()) return home;
    std::array<char, 16384> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found);
    return found == nullptr || entry.pw_dir == nullptr ? "" : entry.pw_dir;
}

}  // namespace

HostKey::HostKey(const std::string& blob)
    : m_blob(blob), m_type(TypeOf(blob)), m_base64(shared::ToBase64(blob)) {}

std::string HostKey::Fingerprint() const {
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    unsigned size = 0;
    EVP_Digest(m_blob.data(), m_blob.size(), hash.data(), &size, EVP_sha256(), nullptr);
    std::string text = shared::ToBase64({hash.begin(), hash.begin() + size});
    text.erase(text.find_last_not_of('=') + 1);
    return "SHA256:" + text;
}

std::string KnownHosts::DefaultPath() {
    std::string named = EnvironmentText("VARNEX_KNOWN_HOSTS");
    if (!named.empty()) return named;
    const std::string state = EnvironmentText("XDG_STATE_HOME");
    if (!state.empty() && state[0] == '/') return state + "/varnex/known_hosts";
    const std::string home = Home();
    return home.empty() ? "" : home + "/.local/state/varnex/known_hosts";
}

std::string KnownHosts::Name(const std::string& host, unsigned port) {
    return port == kSshPort ? Lower(host) : "[" + Lower(host) + "]:" + std::to_string(port);
}

// A file that is not there is an empty one.
std::error_code KnownHosts::Read(std::string& text) const {
    const LockedFile file(m_path, O_RDONLY, LOCK_SH);
    const std::error_code& error = file.Error();
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
        return {};
    }
    return error ? error : file.Read(text);
}

KnownHosts::Result KnownHosts::Find(const std::string& name, const HostKey& key) const {
    Result result;
    std::string text;
    result.error = Read(text);
    return result.error ? result : Search(text, name, key);
}

std::set<std::string> KnownHosts::Types(const std::string& name) const {
    std::set<std::string> types;
    std::string text;
    if (Read(text)) return types;
    std::istringstream lines(text);
    for (std::string raw; std::getline(lines, raw);) {
        const Line line = Parse(raw);
        if (IsKeyLine(line) && line.marker.empty() && Names(line.hosts, Lower(name))) {
            types.insert(line.type);
        }
    }
    return types;
}

KnownHosts::Result KnownHosts::Remember(const std::string& name, const HostKey& key) const {
    Result result;
    MakeFolders(m_path);
    const LockedFile file(m_path, O_RDWR | O_APPEND | O_CREAT, LOCK_EX);
    result.error = file.Error();
    std::string text;
    if (!result.error) result.error = file.Read(text);
    if (result.error) return result;
    result = Search(text, name, key);
    if (result.answer != Answer::kUnknown) return result;
    const std::string gap = text.empty() || text.back() == '\n' ? "" : "\n";
    result.line =
        static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + gap.size() + 1;
    result.error = file.Append(gap + name + " " + key.Type() + " " + key.Base64() + "\n");
    return result;
}
