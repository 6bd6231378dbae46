// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_RUNFOLDER_H
#define KEMFFDC_FLEET_RUNFOLDER_H

#include <string>

#include "cli/ExitCodes.h"
#include "cli/history/FileLock.h"

namespace Kemffdc::Fleet {

// The folder of one fleet run, RUN: a folder for each host, and at the end the reports. One
// conductor at a time works in it: it is locked as long as this object lives.
class RunFolder {
public:
    // Makes a new one in `output`, which is made where its parent exists: its name holds the time.
    Outcome Make(const std::string& output);
    // Takes the one of an earlier run, and makes it anew where it is gone. kLocalFile with
    // Cause::kLocked: another conductor works in it.
    Outcome Take(const std::string& path);

    // Each where it is missing; as PathOf() names it.
    static Outcome MakeHostFolder(const std::string& path);

    // Gives it back; nothing is left of the lock.
    void Release() { m_lock.Remove(PathOf(kLock)); }

    const std::string& Path() const { return m_path; }  // absolute
    std::string PathOf(const std::string& name) const { return m_path + "/" + name; }

private:
    static constexpr char kLock[] = ".lock";

    Outcome Lock();

    std::string m_path;
    History::FileLock m_lock;
};

}  // namespace Kemffdc::Fleet

#endif
