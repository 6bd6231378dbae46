// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_FACTS_H
#define KEMFFDC_REPORT_FACTS_H

#include <optional>
#include <string>
#include <vector>

#include "cli/report/Certificate.h"

namespace Kemffdc {

// What a BMC says of itself. Empty where it does not say; fit for display.
struct BmcFacts {
    std::string address;         // the one that was connected to, numeric, without brackets
    std::string serviceVersion;  // Redfish: RedfishVersion
    std::string product;
    std::string vendor;
    std::string model;
    std::string firmware;
    std::string serial;  // of the machine that the BMC manages
    std::string uuid;    // of that machine, lower case
    std::optional<Certificate> certificate;
    std::string hostKey;             // of its file service: "SHA256:" and base64, as SSH prints it
    std::vector<std::string> notes;  // what an operator should know, whole sentences
};

// What a BMC says about a task beyond its end: one of the Messages of a Redfish task. Empty where
// it does not say; fit for display.
struct TaskMessage {
    std::string id;  // "TavrinFfdc.1.0.StoreLoginFailed"
    std::string text;
    std::string severity;
    std::string resolution;
};

// The task that gathers, as the BMC shows it (Redfish schema Task). Fit for display.
struct Task {
    std::string uri;    // path on the BMC
    std::string state;  // TaskState, raw
    std::string status;
    std::optional<int> percent;
    std::vector<TaskMessage> messages;  // oldest first
};

}  // namespace Kemffdc

#endif
