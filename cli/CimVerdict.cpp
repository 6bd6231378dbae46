// SPDX-License-Identifier: Apache-2.0
#include "CimVerdict.h"

#include <algorithm>

#include "Text.h"

namespace Kemffdc {
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

std::string Why(const CimAccount& account) {
    std::string why = Clean(account.failure);
    while (!why.empty() && why.back() == '.') why.pop_back();
    return why.empty() ? "no reason given" : why;
}

long CountOf(const CimAccount& account, State state) {
    return std::count_if(account.objects.begin(), account.objects.end(),
                         [state](const ExportedObject& object) { return object.state == state; });
}

const ExportedObject* Failed(const CimAccount& account) {
    const auto found = std::find_if(
        account.objects.begin(), account.objects.end(), [](const ExportedObject& object) {
            return object.state == State::kRefused || object.state == State::kFailed;
        });
    return found == account.objects.end() ? nullptr : &*found;
}

// "object 2 of 3 (ZOR_FFDCData.InstanceID="x", type 1)"
std::string Name(const CimAccount& account, const ExportedObject& object) {
    const auto number = &object - account.objects.data() + 1;
    return "object " + std::to_string(number) + " of " + std::to_string(account.found.value_or(0)) +
           " (" + object.path + (object.type.empty() ? "" : ", type " + object.type) + ")";
}

// What stands at the export URI all the same.
std::string Before(const CimAccount& account) {
    const long exported = CountOf(account, State::kExported);
    if (exported == 0) return "Nothing has been exported.";
    return exported == 1 ? "1 object was exported before."
                         : std::to_string(exported) + " objects were exported before.";
}

std::string Returned(const std::string& value) {
    if (value.empty()) return "ExportData returned no value";
    if (value == "0") return "ExportData returned 0, but not as the uint32 that means success";
    return "ExportData returned " + value;
}

Outcome WrongCredentials(const CimAccount& account) {
    return Failure(kNotConnected, "The BMC does not accept the credentials any more (" +
                                      Why(account) + "). Check --user and the password.");
}

Outcome JudgeEnumeration(const CimAccount& account) {
    const std::string list = "list of " + Clean(account.asked) + " objects";
    if (account.asked == kServiceClass && account.services == 0U) {
        return Failure(kExportRefused,
                       "The BMC has no object of class ZOR_FFDCService that could be asked for an "
                       "export.");
    }
    if (IsWrongCredentials(account.failure)) return WrongCredentials(account);
    if (IsTimeout(account.failure)) {
        return Failure(kNotConnected, "The BMC did not send its " + list +
                                          " within 5 minutes. A BMC that hangs needs a reset.");
    }
    if (IsLostConnection(account.failure)) {
        return Failure(kNotConnected, "The connection to the BMC was lost while it sent its " +
                                          list + " (" + Why(account) +
                                          "). Nothing has been exported.");
    }
    return Failure(kExportRefused, "The BMC did not send a usable " + list + " (" + Why(account) +
                                       "). Nothing has been exported.");
}

Outcome JudgeBrokenExport(const CimAccount& account, const ExportedObject& object) {
    const std::string name = Name(account, object);
    if (IsWrongCredentials(account.failure)) return WrongCredentials(account);
    if (IsTimeout(account.failure)) {
        return Failure(kNotFinished, "The BMC has not finished " + name +
                                         " within 20 minutes. It may go on. " + Before(account));
    }
    if (IsLostConnection(account.failure)) {
        return Failure(kNotConnected, "The connection to the BMC was lost while it exported " +
                                          name + " (" + Why(account) + "). It may go on. " +
                                          Before(account));
    }
    return Failure(kExportRefused,
                   "The export of " + name + " failed (" + Why(account) + "). " + Before(account));
}

Outcome JudgeSuccess(const CimAccount& account) {
    if (CountOf(account, State::kExported) > 0) return {};
    if (account.objects.empty()) {
        return Failure(kExportRefused, "The BMC has no data objects: nothing has been exported.");
    }
    return Failure(kExportRefused,
                   "The BMC has only data objects of type 4, which are never exported: nothing has "
                   "been exported.");
}

}  // namespace

Outcome JudgeCimConnect(int code, const CimAccount& account) {
    if (code == 0) return {};
    return Failure(kNotConnected,
                   "The library cannot connect to the BMC's CIM server (" + Why(account) + ").");
}

Outcome JudgeCimExport(int code, const CimAccount& account) {
    if (code == 0) return JudgeSuccess(account);
    const ExportedObject* object = Failed(account);
    if (object == nullptr) return JudgeEnumeration(account);
    if (account.exportBroken) return JudgeBrokenExport(account, *object);
    return Failure(kExportRefused, "The BMC did not export " + Name(account, *object) + ": " +
                                       Returned(object->returned) + ". " + Before(account) +
                                       " Check the export URI and its account; the BMC's own log "
                                       "may tell more.");
}

}  // namespace Kemffdc
