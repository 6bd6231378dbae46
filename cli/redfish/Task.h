// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_TASK_H
#define KEMFFDC_REDFISH_TASK_H

#include <optional>
#include <string>

#include "cli/http/Transport.h"
#include "cli/report/Facts.h"

namespace Kemffdc::Redfish {

// The task that the BMC gathers in, where its answer to the export names one: the path that the
// library follows. `olderPaths`: of services before Redfish 1.6.0. Empty where there is none.
std::string TaskUri(const std::string& exportAnswer, bool olderPaths);

// A task resource (DSP0268, schema Task) as the BMC sent it. Of its messages the newest 64. Nothing
// where the body is no JSON object.
std::optional<Task> ReadTask(const std::string& uri, const std::string& body);

// One read-only GET. Nothing where the BMC does not answer with the task.
std::optional<Task> AskForTask(Transport& transport, const Login& login, const std::string& uri);

// Where a completed task says that its archive lies on the BMC; empty where it does not say.
std::string ArchivePathIn(const std::string& body);

// What the BMC says of a task that has not ended well, as sentences: its state, status and
// percentage as they are, and its worst messages with what it advises. Begins with a blank; empty
// where it says nothing.
std::string BmcSays(const Task& task);

// Whether it says that it was the file store, which did not let it in or could not be reached: by
// messages of the standard's Base registry, and of the OEM's.
bool IsRefusedByStore(const Task& task);

// What it said last: the text, or the message's id where it has none. Empty where it said nothing.
std::string NewestMessage(const Task& task);

}  // namespace Kemffdc::Redfish

#endif
