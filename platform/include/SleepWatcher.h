// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SLEEPWATCHER_H
#define VARNEX_PLATFORM_SLEEPWATCHER_H

#pragma GCC visibility push(default)

namespace Varnex {

// Watches the pauses that Clock makes, for a host that has something to look at before their caller
// goes on. Called by several threads at once. Must not throw.
class SleepWatcher {
public:
    virtual ~SleepWatcher() = default;

    // On the thread that has slept, which goes on once this returns. A sleep of this call's own is
    // not told.
    virtual void SleepEnded() = 0;
};

// Adds and removes a watcher of all pauses of the process; the caller keeps owning it. Once
// RemoveSleepWatcher has returned, no thread is inside the watcher any more; not to be called from
// within it.
void AddSleepWatcher(SleepWatcher* watcher);
void RemoveSleepWatcher(SleepWatcher* watcher);

}  // namespace Varnex

#pragma GCC visibility pop

#endif
