// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_TASKWATCH_H
#define KEMFFDC_REDFISH_TASKWATCH_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "cli/Options.h"
#include "cli/http/Trust.h"
#include "cli/report/Facts.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc::Redfish {

// Looks at a task while the library waits for it: how far it is, and what the BMC says of it. The
// library tells its state alone.
//
// The library is not disturbed: a look is a GET on a thread and a connection of its own, closed
// behind it, begun only once the library has asked and is in its pause; never more often than the
// library asks, nor than once a second; with at most 10 s for the answer. Whom the library's
// requests may not go to does not get one of these. The first look that fails is the last: a BMC
// that has no second ear is left alone.
class TaskWatch {
public:
    using Found = std::function<void(const Task&)>;

    // `found` is called on that thread, and not after TaskEnded() or the destructor; it must not
    // call this object. The others are the caller's.
    TaskWatch(const Options& options, const Trust& trust, const Secret& password, std::string uri,
              std::chrono::seconds interval, Found found);

    // Ends a look that is under way within about a second.
    ~TaskWatch();

    TaskWatch(const TaskWatch&) = delete;
    TaskWatch& operator=(const TaskWatch&) = delete;

    // The library has asked and goes on waiting. What a look brings that was begun before counts
    // only where it shows the same state. Any thread; does not block, nor does the next.
    void TaskGoesOn(const std::string& state);

    // It has ended: nothing is found any more.
    void TaskEnded();

private:
    void Run();
    bool WaitForTurn();  // false: no more looks
    bool Look();

    const Options& m_options;
    const Trust& m_trust;
    const Secret& m_password;
    const std::string m_uri;
    const std::chrono::seconds m_pause;
    const Found m_found;
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_due = false;   // the library has asked since the last look was begun
    std::string m_state;  // as the library was told last
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

}  // namespace Kemffdc::Redfish

#endif
