// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Channel.h"

#include "cli/CommonOptions.h"
#include "cli/redfish/Flow.h"
#include "cli/redfish/Knock.h"
#include "cli/redfish/Options.h"
#include "cli/report/Report.h"

namespace Kemffdc::Redfish {
namespace {

constexpr std::uint16_t kPort = 443;

OptionGroups Groups() {
    return {&PortOptions(), &LoginOptions(),    &TlsOptions(),
            &OwnOptions(),  &DownloadOptions(), &ExportOptions()};
}

std::string Complete(Options& options) {
    if (options.port == 0) options.port = kPort;
    std::string fault = CheckTrust(options);
    if (fault.empty()) fault = CheckBasicUser(options);
    return fault.empty() ? CheckExport(options) : fault;
}

void Outline(const Options& options, Report& report) {
    report.SetLogKind(Own(options).miniLog ? "mini" : "full");
}

}  // namespace

const Channel kChannel{"redfish",
                       "Redfish over HTTPS; the archive is downloaded, or left at a URI",
                       Channel::Host::kRequired,
                       Groups,
                       Complete,
                       Outline,
                       Knock,
                       Collect,
                       Check,
                       Resume};

}  // namespace Kemffdc::Redfish
