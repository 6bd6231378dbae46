// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_SHARED_FILEDESCRIPTOR_H
#define VARNEX_SHARED_FILEDESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace shared {

// Owns a file descriptor; -1: none.
class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor = -1) noexcept : m_descriptor(descriptor) {}
    ~FileDescriptor() { (void)Close(); }
    FileDescriptor(FileDescriptor&& other) noexcept : m_descriptor(other.Release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }

    int Get() const noexcept { return m_descriptor; }
    bool IsOpen() const noexcept { return m_descriptor >= 0; }

    // Lets go of it: now it is the caller's.
    int Release() noexcept { return std::exchange(m_descriptor, -1); }

    // What close(2) returns, errno included; 0 where there is none.
    int Close() noexcept { return IsOpen() ? ::close(Release()) : 0; }

private:
    int m_descriptor;
};

}  // namespace shared

#endif
