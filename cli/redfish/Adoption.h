// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_ADOPTION_H
#define KEMFFDC_REDFISH_ADOPTION_H

#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "cli/http/Transport.h"

namespace Kemffdc::Redfish {

// A run that was killed after it had set out to make the BMC gather, and before it had written down
// which task that began, has left a task on the BMC, or has not. It can be told by the BMC's tasks,
// so that no BMC gathers twice.

// What is known of the request.
struct Intent {
    std::time_t at = 0;           // by this machine's clock
    bool miniLog = false;         // what the OEM's export was asked for
    std::set<std::string> known;  // tasks that other runs have begun
    bool standard = false;        // by the standard's action
};

// A task as the collection shows it.
struct ListedTask {
    std::string uri;
    bool isExport = false;               // the OEM's, of service data
    std::string kind;                    // "Mini-log", "ProcessorDump"; empty: it does not say
    std::optional<std::time_t> started;  // by the BMC's clock
    bool ended = false;
    bool isCollection = false;  // by LogService.CollectDiagnosticData
};

// Reads a task resource (DSP0268): an export is known by its Oem part, or by the action that its
// Payload names, a collection by the latter alone. Nothing where the body is no JSON object.
std::optional<ListedTask> ReadListedTask(const std::string& uri, const std::string& body);

// Of those that nobody knows the first one that began at the time of the intent or after it;
// `ahead`: by how many seconds the BMC's clock is ahead of this machine's. One that does not say
// when it began is taken where it is still at work. Empty: there is none. The schema names no
// user: another one's export of the same data, begun in the same moment, would do as well.
std::string ChooseTask(const std::vector<ListedTask>& tasks, const Intent& intent,
                       std::time_t ahead);

// Times as Redfish (ISO 8601) and HTTP (RFC 9110) write them; nothing for other texts.
std::optional<std::time_t> ReadIsoTime(const std::string& text);
std::optional<std::time_t> ReadHttpTime(const std::string& text);

// Asks the BMC for its tasks: a GET for the collection and one for each task, of the 64 that stand
// last. A request that arrived late is waited for: nothing is said to be missing before the intent
// is `kLatest` seconds old.
struct FoundTask {
    bool answered = false;  // the BMC has told its tasks
    std::string uri;        // empty: there is none
};
constexpr std::time_t kLatest = 5;
FoundTask FindTask(Transport& transport, const Login& login, const Intent& intent);

}  // namespace Kemffdc::Redfish

#endif
