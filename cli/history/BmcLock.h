// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_BMCLOCK_H
#define KEMFFDC_HISTORY_BMCLOCK_H

#include <functional>
#include <string>

#include "cli/ExitCodes.h"
#include "cli/history/FileLock.h"

namespace Kemffdc::History {

// Keeps a second run of this user away from a BMC that one is at work on: two would gather over
// each other. A file in the folder `locks` of the state folder, locked from Take() until the object
// or its process is gone, however that ends.
class BmcLock {
public:
    // What a run does that waits for another one.
    struct Patience {
        std::function<void(const std::string& holder)> begins;  // once: "process 4711, since ..."
        std::function<bool()> isOver;                           // asked several times a second
    };

    BmcLock() = default;
    ~BmcLock() { m_lock.Remove(m_path); }

    BmcLock(const BmcLock&) = delete;
    BmcLock& operator=(const BmcLock&) = delete;

    // Locks a BMC by one of its names; SameBmc() gives each of them one spelling. Of a lock that is
    // taken, kLocalFile at once, with who holds it; with `patience`, only when that is over, as
    // kInterrupted. Where nothing can be locked this succeeds, and Trouble() says why.
    Outcome Take(const std::string& stateFolder, const std::string& bmc,
                 const Patience* patience = nullptr);

    // A sentence: why no other run is kept away. Empty where one is.
    const std::string& Trouble() const { return m_trouble; }

private:
    FileLock::State Wait(const Patience& patience);
    void Sign() const;

    FileLock m_lock;
    std::string m_path;
    std::string m_trouble;
};

}  // namespace Kemffdc::History

#endif
