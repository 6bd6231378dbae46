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
constexpr char kName[] = "redfish";
constexpr char kBrief[] = "Redfish over HTTPS; the archive is downloaded, or left at a URI";

OptionGroups Groups() {
    return {&PortOptions(), &LoginOptions(),    &TlsOptions(),   &OperationOptions(),
            &OwnOptions(),  &DownloadOptions(), &ExportOptions()};
}

// What is said of the standard's action asks for it.
void ImplyOperation(Options& options) {
    auto& own = options.own.Of<ChannelOptions>();
    const bool standard = !own.diagnosticType.empty() || !own.oemType.empty() ||
                          !own.logService.empty() || own.allTypes;
    if (standard && own.operation == Operation::kAuto) own.operation = Operation::kStandard;
}

std::string CheckStandard(const Options& options) {
    const ChannelOptions& own = Own(options);
    if (!own.oemType.empty() && !own.diagnosticType.empty() && own.diagnosticType != "OEM") {
        return "--oem-type goes with --diagnostic-type OEM alone.";
    }
    if (own.operation == Operation::kStandard || own.operation == Operation::kAuto) return "";
    for (const char* name :
         {"--diagnostic-type", "--oem-type", "--log-service", "--all-types", "--delete-after"}) {
        if (options.IsOnLine(name)) return std::string(name) + " goes with --operation standard.";
    }
    return "";
}

// A file says it for all BMCs, and this one is asked for another operation.
void ForgetStandard(Options& options) {
    auto& own = options.own.Of<ChannelOptions>();
    if (own.operation != Operation::kOem && own.operation != Operation::kTree) return;
    own.diagnosticType.clear();
    own.oemType.clear();
    own.logService.clear();
    own.allTypes = own.deleteAfter = false;
}

std::string CheckOperation(const Options& options) {
    const Operation asked = Own(options).operation;
    const bool sends = asked == Operation::kAuto || asked == Operation::kOem;
    if (sends || options.exportUri.empty()) return "";
    return std::string("--operation ") + NameOf(asked) +
           " brings the data here; --export-uri goes with the OEM export alone.";
}

std::string Complete(Options& options) {
    if (options.port == 0) options.port = kPort;
    ImplyOperation(options);
    std::string fault = CheckTrust(options);
    if (fault.empty()) fault = CheckBasicUser(options);
    if (fault.empty()) fault = CheckExport(options);
    if (fault.empty()) fault = CheckStandard(options);
    if (fault.empty()) ForgetStandard(options);
    return fault.empty() ? CheckOperation(options) : fault;
}

// The same, where this operation alone is to be tried.
template <Operation operation>
std::string CompleteFor(Options& options) {
    ImplyOperation(options);
    Operation& asked = options.own.Of<ChannelOptions>().operation;
    if (asked != Operation::kAuto && asked != operation) {
        return std::string("--operation ") + NameOf(asked) + " asks for another operation.";
    }
    asked = operation;
    return Complete(options);
}

void Outline(const Options& options, Report& report) {
    report.SetLogKind(Own(options).miniLog ? "mini" : "full");
}

constexpr Channel ChannelThat(std::string (*complete)(Options& options)) {
    return {kName, kBrief, Channel::Host::kRequired, Groups, complete, Outline, Knock, Collect,
            Check, Resume};
}

}  // namespace

const Channel kChannel = ChannelThat(Complete);
const Channel kOemChannel = ChannelThat(CompleteFor<Operation::kOem>);
const Channel kStandardChannel = ChannelThat(CompleteFor<Operation::kStandard>);
const Channel kTreeChannel = ChannelThat(CompleteFor<Operation::kTree>);

}  // namespace Kemffdc::Redfish
