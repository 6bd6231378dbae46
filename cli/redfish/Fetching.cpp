// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Fetching.h"

#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {

Outcome TellDelivered(Context& run, const DeliveredFile& file, const std::string& bmcPath) {
    Delivery delivery;
    delivery.path = file.path;
    delivery.size = file.size;
    delivery.sha256 = file.sha256;
    delivery.remotePath = Clean(bmcPath);
    delivery.files = {file};
    run.report.SetDelivery(delivery);
    return DiagnoseDamage(file);
}

bool DownloadWatch::KeepsPart(const std::string&) { return m_run.recorder.Number() != 0; }

void DownloadWatch::PartBegun(const Varnex::PartialFile& part) {
    m_run.folder.KeepParts(!part.validator.empty());
}

bool DownloadWatch::Progress(const Varnex::TransferProgress& progress) {
    m_run.progress.Bytes(progress.bytes, progress.expected);
    return !m_run.interrupt.Raised();
}

// On the thread that downloads, where alone the text is to be had.
void DownloadWatch::Ended(const std::string&, const std::error_code& error) {
    m_error = error;
    m_errorText = error.message();
}

Outcome MeasureArchive(Context& run, DeliveredFile& file) {
    Outcome outcome = run.arrivals.Measure(
        file.path, [&run] { return run.interrupt.Raised(); }, file.size, file.sha256);
    if (outcome.Ok() && file.size == 0) {
        outcome =
            Failure(kDownloadFailed, "The BMC's archive is empty (0 bytes). Run the tool again.");
    }
    if (outcome.Ok()) run.Examine(file);
    return run.interrupt.Raised() ? Failure(kInterrupted, "Interrupted.") : outcome;
}

Outcome StoreArchive(Context& run, const std::string& name, const std::string& bmcPath) {
    run.Begin("verify");
    DeliveredFile file;
    file.path = run.folder.WorkPath(name);
    Outcome outcome = MeasureArchive(run, file);
    if (outcome.Ok()) outcome = run.Deliver(name, name, file.path);
    if (outcome.Ok()) outcome = TellDelivered(run, file, bmcPath);
    run.report.EndStep(outcome.code, outcome.reason);
    return outcome;
}

}  // namespace Kemffdc::Redfish
