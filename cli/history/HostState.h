// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_HOSTSTATE_H
#define KEMFFDC_HISTORY_HOSTSTATE_H

#include <optional>
#include <string>

namespace Kemffdc::History {

// Where a host of a fleet run is. The order is that of a host that succeeds.
enum class HostState {
    kQueued,     // nobody has tried it yet
    kStarting,   // a worker is being started, or has been
    kReached,    // the BMC has answered and taken the login
    kExporting,  // the intent: the request to gather goes out next
    kGathering,  // the BMC gathers; its task is known where the channel has one
    kWaiting,    // gathered; waits for its turn to download
    kTransferring,
    kPausing,  // failed, and will be tried again
    kDone,
    kFailed,   // for good
    kStopped,  // not tried, or ended, for a reason beyond it: the guard, a deadline, a signal
};

// Its name in the history and in JSON: "queued", "starting" ... Never reused for another meaning.
const char* NameOf(HostState state);
std::optional<HostState> HostStateNamed(const std::string& name);

// Whether nothing more happens to the host in this run.
bool HasEnded(HostState state);

}  // namespace Kemffdc::History

#endif
