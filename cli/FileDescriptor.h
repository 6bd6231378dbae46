// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FILEDESCRIPTOR_H
#define KEMFFDC_FILEDESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace Kemffdc {

// Owns a file descriptor; -1: none.
class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor = -1) noexcept : m_descriptor(descriptor) {}
    ~FileDescriptor() {
        if (IsOpen()) close(m_descriptor);
    }
    FileDescriptor(FileDescriptor&& other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }

    int Get() const noexcept { return m_descriptor; }
    bool IsOpen() const noexcept { return m_descriptor >= 0; }

private:
    int m_descriptor;
};

}  // namespace Kemffdc

#endif
