// SPDX-License-Identifier: Apache-2.0
#include "cli/history/BmcLock.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <thread>

#include "cli/Utc.h"
#include "cli/history/BmcName.h"
#include "cli/history/StateFolder.h"

namespace Kemffdc::History {
namespace {

constexpr auto kPause = std::chrono::milliseconds(100);

std::string FileName(std::string bmc) {
    std::replace(bmc.begin(), bmc.end(), '/', '_');
    return bmc;
}

// "process 4711, since 2026-01-31T23:59:58Z"; on a folder that machines share also "of station3".
std::string Holder(const std::string& path) {
    std::ifstream file(path);
    std::string process;
    std::string since;
    std::string machine;
    // Between its lock and its words a process may be met without them.
    if (!(file >> process >> since >> machine)) return "a process that has just begun";
    const bool here = machine == ThisMachine();
    return "process " + process + (here ? "" : " of " + machine) + ", since " + since;
}

}  // namespace

Outcome BmcLock::Take(const std::string& stateFolder, const std::string& bmc,
                      const Patience* patience) {
    const std::string folder = stateFolder + "/locks";
    const Outcome made = MakeStateFolder(stateFolder);
    m_trouble = made.reason;
    if (!made.Ok()) return {};
    (void)mkdir(folder.c_str(), 0700);
    m_path = folder + "/" + FileName(bmc);
    FileLock::State state = m_lock.Try(m_path);
    if (state == FileLock::State::kTaken && patience != nullptr) state = Wait(*patience);
    if (state == FileLock::State::kTaken) {
        if (patience != nullptr) return Failure(kInterrupted, "Interrupted.");
        return Failure(kLocalFile, Cause::kLocked,
                       "Another run is at work on this BMC (" + Holder(m_path) +
                           "). With --wait this one waits until it is done.");
    }
    if (state == FileLock::State::kLocked) Sign();
    if (state == FileLock::State::kNoLocks) {
        m_trouble = "No other run is kept away from this BMC: " + m_path +
                    " cannot be locked: " + std::strerror(errno) + ".";
    }
    return {};
}

FileLock::State BmcLock::Wait(const Patience& patience) {
    patience.begins(Holder(m_path));
    FileLock::State state = FileLock::State::kTaken;
    while (state == FileLock::State::kTaken && !patience.isOver()) {
        std::this_thread::sleep_for(kPause);
        state = m_lock.Try(m_path);
    }
    return state;
}

// What Holder() reads. Nothing depends on it.
void BmcLock::Sign() const {
    const std::string words =
        std::to_string(getpid()) + " " + UtcNow() + " " + ThisMachine() + "\n";
    (void)!ftruncate(m_lock.Descriptor(), 0);
    (void)!pwrite(m_lock.Descriptor(), words.data(), words.size(), 0);
}

}  // namespace Kemffdc::History
