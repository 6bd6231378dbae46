// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_FETCHING_H
#define KEMFFDC_REDFISH_FETCHING_H

#include <chrono>
#include <string>
#include <system_error>
#include <utility>

#include "Transfer.h"
#include "cli/Context.h"

namespace Kemffdc::Redfish {

// What a run that gathers and one that goes on with its task do alike once the archive is on its
// way.

constexpr std::chrono::seconds kSessionSeconds{10};  // to list sessions, and to close one

// Shows the bytes of a download, keeps how it ended, and stops it when the run is interrupted.
class DownloadWatch : public Varnex::TransferWatcher {
public:
    // `validator`: of a part that stands beside the download already; empty: there is none.
    explicit DownloadWatch(const Context& run, std::string validator = "")
        : m_run(run), m_validator(std::move(validator)) {
        Varnex::AddTransferWatcher(this);
    }
    ~DownloadWatch() override { Varnex::RemoveTransferWatcher(this); }
    DownloadWatch(const DownloadWatch&) = delete;
    DownloadWatch& operator=(const DownloadWatch&) = delete;

    // A part is of use to who can come back for it.
    bool KeepsPart(const std::string& localPath) override;
    std::string ContinuesPart(const std::string&) override { return m_validator; }
    void PartBegun(const Varnex::PartialFile& part) override;

    bool Progress(const Varnex::TransferProgress& progress) override;
    void Ended(const std::string& localPath, const std::error_code& error) override;

    std::error_code Error() const { return m_error; }
    const std::string& ErrorText() const { return m_errorText; }

private:
    const Context& m_run;
    const std::string m_validator;
    std::error_code m_error;
    std::string m_errorText;
};

// Measures and examines the file at file.path. A file without bytes is a failure.
Outcome MeasureArchive(Context& run, DeliveredFile& file);

// Measures, examines and delivers what was downloaded as `name` into the working folder, as a step
// of the run. `bmcPath`: where the BMC has it.
Outcome StoreArchive(Context& run, const std::string& name, const std::string& bmcPath);

// Tells that a file has been delivered; how its damage, if it has any, ends the run.
Outcome TellDelivered(Context& run, const DeliveredFile& file, const std::string& bmcPath);

}  // namespace Kemffdc::Redfish

#endif
