// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Channel.h"

#include <memory>

#include "cli/CommonOptions.h"
#include "cli/cim/Flow.h"
#include "cli/cim/Knock.h"
#include "cli/cim/Objects.h"
#include "cli/cim/Options.h"
#include "cli/report/Report.h"

namespace Kemffdc::Cim {
namespace {

constexpr std::uint16_t kPort = 5989;
constexpr std::uint16_t kPlainPort = 5988;

OptionGroups Groups() {
    return {&PortOptions(), &LoginOptions(), &TlsOptions(), &OwnOptions(), &ExportOptions()};
}

// The library looks for these words in the whole URI, in lower case; the tool wants to be sure of
// what the BMC makes of it.
std::string CheckTarget(const Options& options) {
    const std::string& uri = options.exportUri;
    if (uri.empty()) {
        return "--via cim needs --export-uri: the BMC uploads its archives by itself.";
    }
    const bool sftp = uri.rfind("sftp://", 0) == 0;
    const bool tftp = uri.rfind("tftp://", 0) == 0;
    if (!sftp && !tftp) return "--export-uri must begin with sftp:// or tftp://.";
    if (uri.find_first_of("/?#", 7) == 7 || uri.size() == 7) return "--export-uri names no host.";
    if (tftp && !(options.exportUser.empty() && options.exportPasswordFile.empty())) {
        return "TFTP knows no accounts: --export-user and --export-password-file need sftp://.";
    }
    return "";
}

std::string CheckPlain(Options& options) {
    if (!Own(options).plain) return "";
    for (const char* name : {"--ca-file", "--fingerprint", "--accept-new-certificate"}) {
        if (options.IsOnLine(name)) {
            return std::string("--plain has no certificate for ") + name + " to check.";
        }
    }
    options.caFile.clear();
    options.fingerprint.clear();
    return "";
}

std::string Complete(Options& options) {
    if (options.port == 0) options.port = Own(options).plain ? kPlainPort : kPort;
    std::string fault = CheckPlain(options);
    if (fault.empty()) fault = CheckTrust(options);
    if (fault.empty()) fault = CheckBasicUser(options);
    if (fault.empty()) fault = CheckExport(options);
    if (fault.empty() && options.command != Command::kCheck) fault = CheckTarget(options);
    return fault;
}

void Outline(const Options& /*options*/, Report& report) {
    report.SetPart(std::make_shared<ObjectList>());
}

}  // namespace

const Channel kChannel{"cim",
                       "CIM-XML of older machines; the BMC sends to a file store",
                       Channel::Host::kRequired,
                       Groups,
                       Complete,
                       Outline,
                       Knock,
                       Collect,
                       Check};

}  // namespace Kemffdc::Cim
