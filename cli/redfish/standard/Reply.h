// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_STANDARD_REPLY_H
#define KEMFFDC_REDFISH_STANDARD_REPLY_H

#include <chrono>
#include <optional>
#include <string>

#include "cli/http/Transport.h"
#include "cli/redfish/standard/Entries.h"
#include "cli/report/Facts.h"

namespace Kemffdc::Redfish {

// What an answer to the action says, or one to a question for its task or task monitor: they have
// the same forms (DSP0266, "Asynchronous operations").
struct Reply {
    enum class State {
        kRunning,    // 202, or a task that goes on
        kEntry,      // done: the answer is the log entry
        kNamed,      // done, and `entryUri` leads to the entry
        kDone,       // done, and nothing says where the entry is
        kFailed,     // the task has ended badly: it is in `task`
        kBusy,       // 503: try again
        kForgotten,  // 404, 410: no such task any more
        kRefused,    // any other answer that is no success
        kNoAnswer,
        kUnreadable,  // a body that is due is no JSON object
    };
    State state = State::kNoAnswer;
    std::string monitor{};   // Location of a 202 as it stands there; empty: it names none
    std::string taskUri{};   // @odata.id of the task in the answer; empty: there is none
    std::string entryUri{};  // as it stands there
    std::optional<Task> task{};
    std::optional<LogEntry> entry{};
    std::optional<std::chrono::seconds> retryAfter{};
};

Reply ReadReply(const Answer& answer);

// Of a Retry-After (RFC 9110, section 10.2.3): seconds, or a date that is compared with the
// answer's own. At most an hour; nothing for what is neither.
std::optional<std::chrono::seconds> RetryAfter(const Answer& answer);

}  // namespace Kemffdc::Redfish

#endif
