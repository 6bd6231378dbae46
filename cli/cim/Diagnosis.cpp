// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Diagnosis.h"

#include <algorithm>

#include "cli/terminal/Text.h"

namespace Kemffdc::Cim {
namespace {

using State = ExportedObject::State;

constexpr char kServiceClass[] = "ZOR_FFDCService";

bool Begins(const std::string& text, const char* with) { return text.rfind(with, 0) == 0; }

// The CIM client tells its failures apart by their texts alone once they are in the log.
bool IsTimeout(const std::string& failure) { return failure == "connection timed out"; }

bool IsWrongCredentials(const std::string& failure) {
    return Begins(failure, "HTTP Error (401 ") || Begins(failure, "HTTP Error (403 ") ||
           failure == "Invalid Authorization header";
}

bool IsLostConnection(const std::string& failure) {
    return failure == "Connection closed by CIM Server." || failure == "not connected" ||
           Begins(failure, "Cannot connect to ") || Begins(failure, "Invalid locator: ");
}

std::string Why(const RunEvents& events) {
    std::string why = Clean(events.failure);
    while (!why.empty() && why.back() == '.') why.pop_back();
    return why.empty() ? "no reason given" : why;
}

long CountOf(const RunEvents& events, State state) {
    return std::count_if(events.objects.begin(), events.objects.end(),
                         [state](const ExportedObject& object) { return object.state == state; });
}

const ExportedObject* Failed(const RunEvents& events) {
    const auto found = std::find_if(
        events.objects.begin(), events.objects.end(), [](const ExportedObject& object) {
            return object.state == State::kRefused || object.state == State::kFailed;
        });
    return found == events.objects.end() ? nullptr : &*found;
}

// "object 2 of 3 (ZOR_FFDCData.InstanceID="x", type 1)"
std::string Name(const RunEvents& events, const ExportedObject& object) {
    const auto number = &object - events.objects.data() + 1;
    return "object " + std::to_string(number) + " of " + std::to_string(events.found.value_or(0)) +
           " (" + object.path + (object.type.empty() ? "" : ", type " + object.type) + ")";
}

// What stands at the export URI all the same.
std::string Before(const RunEvents& events) {
    const long exported = CountOf(events, State::kExported);
    if (exported == 0) return "Nothing has been exported.";
    return exported == 1 ? "1 object was exported before."
                         : std::to_string(exported) + " objects were exported before.";
}

// The method is the vendor's own; its values mean what those of most methods in the DMTF's CIM
// schema do.
struct ReturnValue {
    const char* value;
    const char* shown;
    const char* advice;
    Cause cause;
};
constexpr char kCheckTarget[] =
    " Check the export URI and its account; the BMC's own log may tell more.";
constexpr char kTryLater[] = " Try again later; a BMC that hangs needs a reset.";
constexpr ReturnValue kReturnValues[] = {
    {"", "no value", kCheckTarget, Cause::kUnnamed},
    {"0", "0, but not as the uint32 that means success", kCheckTarget, Cause::kUnnamed},
    {"1", "1 (not supported)", " Its firmware may know no such export.", Cause::kUnsupported},
    {"2", "2 (an error of no known kind)", kCheckTarget, Cause::kUnnamed},
    {"3", "3 (a timeout)", kTryLater, Cause::kUnnamed},
    {"4", "4 (failed)", kCheckTarget, Cause::kUnnamed},
    {"5", "5 (an invalid parameter)", kCheckTarget, Cause::kUnnamed},
    {"6", "6 (in use, perhaps by another export)", kTryLater, Cause::kBusy},
    {"4096", "4096 (a job was started)",
     " The BMC may go on by itself: look at the export URI later.", Cause::kUnnamed},
};

Outcome Refused(const std::string& value, const std::string& what, const std::string& before) {
    ReturnValue meant{nullptr, value.c_str(), kCheckTarget, Cause::kUnnamed};
    for (const ReturnValue& known : kReturnValues) {
        if (value == known.value) meant = known;
    }
    return Failure(kExportRefused, meant.cause,
                   what + ": ExportData returned " + meant.shown + ". " + before + meant.advice);
}

Outcome WrongCredentials(const RunEvents& events) {
    return Failure(kNotConnected, Cause::kLoginRefused,
                   "The BMC does not accept the credentials any more (" + Why(events) +
                       "). Check --user and the password.");
}

Outcome DiagnoseEnumeration(const RunEvents& events) {
    const std::string list = "list of " + Clean(events.asked) + " objects";
    if (events.asked == kServiceClass && events.services == 0U) {
        return Failure(kExportRefused, Cause::kUnsupported,
                       "The BMC has no object of class ZOR_FFDCService that could be asked for an "
                       "export.");
    }
    if (IsWrongCredentials(events.failure)) return WrongCredentials(events);
    if (IsTimeout(events.failure)) {
        return Failure(kNotConnected, Cause::kBmcFault,
                       "The BMC did not send its " + list +
                           " within 5 minutes. A BMC that hangs needs a reset.");
    }
    if (IsLostConnection(events.failure)) {
        return Failure(kNotConnected, Cause::kConnectionLost,
                       "The connection to the BMC was lost while it sent its " + list + " (" +
                           Why(events) + "). Nothing has been exported.");
    }
    return Failure(kExportRefused, Cause::kBmcFault,
                   "The BMC did not send a usable " + list + " (" + Why(events) +
                       "). Nothing has been exported.");
}

Outcome DiagnoseBrokenExport(const RunEvents& events, const ExportedObject& object) {
    const std::string name = Name(events, object);
    if (IsWrongCredentials(events.failure)) return WrongCredentials(events);
    if (IsTimeout(events.failure)) {
        return Failure(kNotFinished, "The BMC has not finished " + name +
                                         " within 20 minutes. It may go on. " + Before(events));
    }
    if (IsLostConnection(events.failure)) {
        return Failure(kNotConnected, Cause::kConnectionLost,
                       "The connection to the BMC was lost while it exported " + name + " (" +
                           Why(events) + "). It may go on. " + Before(events));
    }
    return Failure(kExportRefused,
                   "The export of " + name + " failed (" + Why(events) + "). " + Before(events));
}

Outcome DiagnoseSuccess(const RunEvents& events) {
    if (CountOf(events, State::kExported) > 0) return {};
    if (events.objects.empty()) {
        return Failure(kExportRefused, "The BMC has no data objects: nothing has been exported.");
    }
    return Failure(kExportRefused,
                   "The BMC has only data objects of type 4, which are never exported: nothing has "
                   "been exported.");
}

}  // namespace

Outcome DiagnoseConnect(int code, const RunEvents& events) {
    if (code == 0) return {};
    return Failure(kNotConnected, Cause::kUnreachable,
                   "The library cannot connect to the BMC's CIM server (" + Why(events) + ").");
}

Outcome DiagnoseExport(int code, const RunEvents& events) {
    if (code == 0) return DiagnoseSuccess(events);
    const ExportedObject* object = Failed(events);
    if (object == nullptr) return DiagnoseEnumeration(events);
    if (events.exportBroken) return DiagnoseBrokenExport(events, *object);
    return Refused(object->returned, "The BMC did not export " + Name(events, *object),
                   Before(events));
}

}  // namespace Kemffdc::Cim
