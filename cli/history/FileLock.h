// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_FILELOCK_H
#define KEMFFDC_HISTORY_FILELOCK_H

#include <string>

#include "shared/FileDescriptor.h"

namespace Kemffdc::History {

// A file that is there to be locked, flock(2): by one process at a time, and by none once it has
// ended, however it ended. Made for this user alone where it is missing.
class FileLock {
public:
    enum class State {
        kLocked,
        kTaken,    // by another process, or by another object of this one
        kNoLocks,  // the file cannot be made, or the file system has no locks; errno tells why
    };

    FileLock() = default;

    // Does not wait. Whether this object now has the lock.
    State Try(const std::string& path);

    // Tries for at most 5 s.
    State Take(const std::string& path);

    // Of the file, while it is locked; else -1.
    int Descriptor() const { return m_file.Get(); }

    // Removes the file and gives the lock back. A file that stays behind does no harm.
    void Remove(const std::string& path);

private:
    shared::FileDescriptor m_file;
};

}  // namespace Kemffdc::History

#endif
