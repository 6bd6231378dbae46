// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_RUNRECORD_H
#define KEMFFDC_REPORT_RUNRECORD_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/report/ChannelPart.h"
#include "cli/report/Facts.h"

namespace Kemffdc {

// A step that has ended.
struct Step {
    std::string name;
    int code = 0;  // the library's where the step is one call of it; 0: well
    double seconds = 0;
    std::string detail;  // may be empty
};

// A channel that was tried in search of one that can be used.
struct Attempt {
    std::string channel;
    std::uint16_t port = 0;  // 0: the channel has none
    Outcome outcome;
    double seconds = 0;
    std::string operation{};  // of the channel, where one was chosen
};

// A file that came from a BMC.
struct DeliveredFile {
    std::string path;  // absolute, on this machine
    std::uint64_t size = 0;
    std::string sha256;         // lower-case hexadecimal
    std::optional<bool> whole;  // whether it can be unpacked to its end; none: it is no archive
    std::string damage;         // why not, as it follows "the archive"; fit for display
};

// What has been obtained. Both empty until it stands.
struct Delivery {
    std::string path;  // absolute, on this machine: a file, or a folder of files
    std::string exportUri;
    std::uint64_t size = 0;            // of all files
    std::string sha256;                // of the file; empty for a folder
    std::string remotePath;            // where the BMC kept it, fit for display; may be empty
    std::vector<DeliveredFile> files;  // each one, also where it is one
};

// All there is to tell about one run: what is printed in words and JSON, kept beside the archive
// and in the history. Free of secrets.
struct RunRecord {
    std::optional<std::int64_t> number;  // of the run, in the history
    std::string command;                 // "collect", ...; empty where none was recognised
    std::string channel;                 // empty until one is chosen
    std::string host;                    // as it was given; empty: this machine's own BMC
    std::uint16_t port = 0;              // 0: the channel has none
    std::string user;                    // on the BMC; empty: nobody logs in
    std::string logKind;                 // "full" or "mini"; empty where there is one kind alone
    std::string operation;               // Redfish: "oem" ...; empty until one is chosen
    std::string operationReason;         // why that one
    std::string caFile;                  // that the certificate was checked against
    std::string started;                 // UTC, as UtcNow() gives it
    std::string ended;
    Outcome outcome;
    std::vector<Attempt> attempts;
    std::vector<Step> steps;
    BmcFacts facts;
    std::optional<Task> task;
    Delivery delivery;
    std::shared_ptr<const ChannelPart> part;  // null: the channel has nothing of its own to tell
};

// As JSON says it; null: nothing was asked for.
const char* TrustName(CertificateTrust trust);

// What became of it in one word, as JSON and history say it: the name of the outcome's cause, or
// that of its exit code, where 0 is "checked", "downloaded" or "exported".
const char* OutcomeName(const RunRecord& record);

// That of an attempt or a step alone; 0 is "ok".
const char* OutcomeName(const Outcome& outcome);

// Whether the same command may end better later, without a change here or on the BMC. Never where
// trying again may lock an account.
bool IsRetryable(const Outcome& outcome);

}  // namespace Kemffdc

#endif
