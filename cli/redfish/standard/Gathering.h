// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_STANDARD_GATHERING_H
#define KEMFFDC_REDFISH_STANDARD_GATHERING_H

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "cli/Context.h"
#include "cli/redfish/Session.h"
#include "cli/redfish/standard/Entries.h"
#include "cli/redfish/standard/Reply.h"
#include "cli/redfish/standard/Selection.h"

namespace Kemffdc::Redfish {

// One collection of diagnostic data, from the request to the log entry that it leaves, in whatever
// form the BMC answers.
class Gathering {
public:
    // Both are the caller's.
    Gathering(Context& run, Session& session) : m_run(run), m_session(session) {}

    // Asks for the collection. A BMC that is busy is asked again for some minutes, when it says.
    Outcome Begin(const Collection& wanted);

    // Goes on with the task or task monitor at `task` (empty: it is not known), of a run that began
    // at `begun` (UTC). Its entry may be in any of the logs.
    void GoOn(const std::string& task, const std::string& begun, const LogServices& logs);

    // Until the entry is there, which is to have data. Asks so often as --tries and --interval say,
    // or when the BMC says (Retry-After).
    Outcome Wait(LogEntry& entry);

    const std::string& TaskUri() const { return m_task.uri; }  // empty: the BMC has named none

private:
    Outcome Step(std::optional<LogEntry>& entry);
    Outcome ReadNamed(std::optional<LogEntry>& entry);
    void Search(std::optional<LogEntry>& entry);
    void AskAgain();
    void Pause();
    void TakeAnswer(const Answer& answer);
    void Show(const Task& task);
    Outcome Missed();
    Outcome Refused();
    Outcome NotFinished();
    Outcome NoEntry() const;
    Ask BySession();

    Context& m_run;
    Session& m_session;
    std::vector<std::string> m_logs;  // where the entry is looked for
    EntryList m_before;
    NewEntry m_wanted;
    Answer m_answer;  // the last one
    Reply m_reply;
    std::string m_poll;  // where to ask next; empty: nowhere, the log alone can tell
    Task m_task;         // as the BMC last showed it; without a path: it has named none
    bool m_forgotten = false;
    int m_failures = 0;
    int m_searches = 0;
    std::string m_gap;  // why a log could not be read to its end
};

}  // namespace Kemffdc::Redfish

#endif
