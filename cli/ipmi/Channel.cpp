// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Channel.h"

#include <memory>

#include "cli/CommonOptions.h"
#include "cli/ipmi/Files.h"
#include "cli/ipmi/Flow.h"
#include "cli/ipmi/Knock.h"
#include "cli/ipmi/Options.h"
#include "cli/report/Report.h"

namespace Kemffdc::Ipmi {
namespace {

constexpr std::uint16_t kPort = 623;

constexpr char kLeftOut[] = "Not in this build (VARNEX_IPMI=OFF)";

constexpr const char* Brief(const char* brief) { return KEMFFDC_IPMI_BUILT ? brief : kLeftOut; }

// The tool takes a module that happens to be there as little as one that is not.
std::string FaultOfBuild(const char* name) {
    if (KEMFFDC_IPMI_BUILT) return "";
    return std::string("--via ") + name +
           ": this kemffdc was built without IPMI (VARNEX_IPMI=OFF).";
}

OptionGroups OverLan() {
    return {&PortOptions(), &LoginOptions(), &LanOptions(), &GatherOptions(), &DownloadOptions()};
}

OptionGroups InBand() { return {&LoginOptions(), &GatherOptions(), &DownloadOptions()}; }

std::string CompleteOverLan(Options& options) {
    if (options.port == 0) options.port = kPort;
    return FaultOfBuild("ipmi");
}

// In band nobody logs in. In the modes that fetch an account in band, the file service may be tried
// with another one besides.
std::string CompleteInBand(Options& options) {
    Part<ChannelOptions>(options).inBand = true;
    if (std::string fault = FaultOfBuild("kcs"); !fault.empty()) return fault;
    const bool useful =
        options.command != Command::kCheck && Own(options).mode != kAccountOverSession;
    const bool onLine = options.IsOnLine("--user") || options.IsOnLine("--password-file");
    if (onLine && !useful) {
        return "--via kcs logs in nowhere: --user and --password-file are for collect in modes "
               "other than 2.";
    }
    // From kemffdc.conf a password counts, a user alone does not: it is meant for the LAN.
    const bool configured = !options.passwordFile.empty() || !options.passwordCommand.empty();
    options.needsPassword = onLine || (useful && configured);
    if (!options.needsPassword) options.user.clear();
    return "";
}

void Outline(const Options& /*options*/, Report& report) {
    report.SetPart(std::make_shared<FileList>());
}

}  // namespace

const Channel kLanChannel{"ipmi",
                          Brief("IPMI over the LAN; files come by SFTP (port 115)"),
                          Channel::Host::kRequired,
                          OverLan,
                          CompleteOverLan,
                          Outline,
                          Knock,
                          Collect,
                          Check,
                          nullptr,
                          KEMFFDC_IPMI_BUILT};

const Channel kKcsChannel{"kcs",
                          Brief("The same from this machine's own BMC, in band"),
                          Channel::Host::kOptional,
                          InBand,
                          CompleteInBand,
                          Outline,
                          nullptr,
                          Collect,
                          Check,
                          nullptr,
                          KEMFFDC_IPMI_BUILT};

}  // namespace Kemffdc::Ipmi
