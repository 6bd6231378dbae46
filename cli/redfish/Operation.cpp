// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Operation.h"

namespace Kemffdc::Redfish {

const char* NameOf(Operation operation) {
    switch (operation) {
        case Operation::kAuto:
            return "auto";
        case Operation::kOem:
            return "oem";
        case Operation::kStandard:
            return "standard";
        case Operation::kTree:
            return "tree";
    }
    return "";
}

Operation OperationNamed(const std::string& name) {
    for (const Operation one : {Operation::kOem, Operation::kStandard, Operation::kTree}) {
        if (name == NameOf(one)) return one;
    }
    return Operation::kAuto;
}

Chosen Choose(Operation asked, bool toStore, const Offer& offer) {
    const std::string said = std::string("--operation ") + NameOf(asked) + " asks for it";
    switch (asked) {
        case Operation::kOem:
            return {asked, said, offer.noOem};
        case Operation::kStandard:
            return {asked, said, offer.noStandard};
        case Operation::kTree:
            return {asked, said, ""};
        case Operation::kAuto:
            break;
    }
    if (offer.noOem.empty()) return {Operation::kOem, "the BMC offers it", ""};
    if (toStore) {
        return {Operation::kOem, "no other sends archives to --export-uri", offer.noOem};
    }
    if (offer.noStandard.empty()) {
        return {Operation::kStandard, "the BMC has no OEM export, and offers the standard's action",
                ""};
    }
    return {Operation::kTree, "the BMC has neither an OEM export nor the standard's action", ""};
}

}  // namespace Kemffdc::Redfish
