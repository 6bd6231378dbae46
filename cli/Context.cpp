// SPDX-License-Identifier: Apache-2.0
#include "cli/Context.h"

#include "cli/ArchiveName.h"
#include "cli/Utc.h"
#include "cli/history/BmcName.h"

namespace Kemffdc {

std::string Context::NameFor(const std::string& bmcPath) const {
    const std::string& host = options.host;
    return ArchiveName(options.nameTemplate,
                       {host.empty() ? History::ThisMachine() : host, report.Now().facts.serial,
                        UtcForNames(std::time(nullptr)), bmcPath});
}

Outcome Context::AwaitTurn() {
    if (turns != nullptr) {
        report.Reach(Milestone::kWaiting);
        report.WantTurn();
        interrupt.HoldDeadline();
        turns->Wait([this] { return interrupt.Raised(); });
        interrupt.ReleaseDeadline();
    }
    if (interrupt.Raised()) return Failure(kInterrupted, "Interrupted.");
    report.Reach(Milestone::kTransferring);
    return {};
}

void Context::Examine(DeliveredFile& file) {
    const std::optional<Archives::Reading> reading = arrivals.Reading(file.path);
    if (!reading) return;
    file.whole = reading->Ok();
    file.damage = reading->reason;
}

Outcome DiagnoseDamage(const DeliveredFile& file) {
    if (file.damage.empty()) return {};
    return Failure(
        kIncomplete, Cause::kUnreadable,
        "The archive is kept, but it " + file.damage +
            ". Run the tool again; if that brings the same, the BMC's own is no better.");
}

}  // namespace Kemffdc
