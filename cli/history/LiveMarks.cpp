// SPDX-License-Identifier: Apache-2.0
#include "cli/history/LiveMarks.h"

#include <fcntl.h>

#include <cerrno>

namespace Kemffdc::History {
namespace {

flock OneByte(std::int64_t at) {
    flock lock{};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = at;
    lock.l_len = 1;
    return lock;
}

}  // namespace

bool LiveMarks::Set(std::int64_t number) {
    if (!m_file.IsOpen()) {
        m_file = shared::FileDescriptor(
            open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    }
    flock lock = OneByte(number);
    return fcntl(m_file.Get(), F_OFD_SETLK, &lock) == 0 || (errno != EAGAIN && errno != EACCES);
}

bool LiveMarks::IsSet(std::int64_t number) const {
    // Opened anew: what holds a lock does not see it.
    const shared::FileDescriptor file(open(m_path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    flock lock = OneByte(number);
    return file.IsOpen() && fcntl(file.Get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace Kemffdc::History
