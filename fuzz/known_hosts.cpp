// SPDX-License-Identifier: Apache-2.0
//
// Any file of known host keys. The first line is the name of a host, the second a key's bytes, the
// rest the file.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "KnownHosts.h"

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

std::string TakeLine(std::string& text) {
    const std::size_t end = text.find('\n');
    const std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? text.size() : end + 1);
    return line;
}

// A file without a name on any disk.
class MemoryFile {
public:
    MemoryFile() : m_fd(memfd_create("known_hosts", MFD_CLOEXEC)) { Require(m_fd >= 0); }
    ~MemoryFile() { close(m_fd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_fd); }
    void Fill(const std::string& text) const {
        Require(write(m_fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    }

private:
    int m_fd;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    const std::string name = KnownHosts::Name(TakeLine(text), 115);
    const HostKey key(TakeLine(text));
    (void)key.Fingerprint();
    const MemoryFile file;
    file.Fill(text);
    const KnownHosts hosts(file.Path());

    const KnownHosts::Result before = hosts.Find(name, key);
    Require(!before.error);
    if (before.answer != KnownHosts::Answer::kUnknown) return 0;
    const bool plain = name.find_first_of(" \t\v\f\r,#@|*") == std::string::npos &&
                       name.find('\0') == std::string::npos && !key.Type().empty() &&
                       key.Type().find_first_of(" \t\v\f\r\n") == std::string::npos;
    Require(!hosts.Remember(name, key).error);
    if (plain) Require(hosts.Find(name, key).answer == KnownHosts::Answer::kKnown);
    return 0;
}
