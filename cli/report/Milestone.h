// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_MILESTONE_H
#define KEMFFDC_REPORT_MILESTONE_H

namespace Kemffdc {

// How far a run has got on its BMC, whatever the channel. In the order in which they come; a
// channel may pass over some.
enum class Milestone {
    kReached,    // the BMC has answered and taken the login
    kExporting,  // the request to gather goes out next
    kGathering,  // the BMC has taken it; its task is known where the channel has one
    kWaiting,    // gathered; waits for its turn to download
    kTransferring,
};

// As HostState (cli/history) and JSON name it: "reached" ...
inline const char* NameOf(Milestone milestone) {
    switch (milestone) {
        case Milestone::kReached:
            return "reached";
        case Milestone::kExporting:
            return "exporting";
        case Milestone::kGathering:
            return "gathering";
        case Milestone::kWaiting:
            return "waiting";
        case Milestone::kTransferring:
            break;
    }
    return "transferring";
}

}  // namespace Kemffdc

#endif
