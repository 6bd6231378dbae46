// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_FUZZ_SUPPORT_H
#define VARNEX_FUZZ_SUPPORT_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

// Ends the target, which keeps the input, where something does not hold.
inline void Require(bool holds) {
    if (!holds) std::abort();
}

// A file without a name on any disk; its path can be opened as long as it lives.
class MemoryFile {
public:
    explicit MemoryFile(const std::string& text)
        : m_descriptor(memfd_create("input", MFD_CLOEXEC)) {
        Require(write(m_descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    }
    ~MemoryFile() { close(m_descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

private:
    int m_descriptor;
};

#endif
