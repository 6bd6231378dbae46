// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_REPORT_H
#define KEMFFDC_REPORT_REPORT_H

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/Options.h"
#include "cli/report/Certificate.h"

namespace Kemffdc {

// What a BMC says of itself. Empty where it does not say; fit for display.
struct BmcFacts {
    std::string serviceVersion;  // Redfish: RedfishVersion
    std::string product;
    std::string vendor;
    std::string model;
    std::string firmware;
    std::optional<Certificate> certificate;
    std::vector<std::string> notes;  // what an operator should know, whole sentences
};

// A step that has ended.
struct Step {
    std::string name;
    int code = 0;  // the library's where the step is one call of it; 0: well
    double seconds = 0;
    std::string detail;  // may be empty
};

// What has been obtained. Both empty until it stands.
struct Delivery {
    std::string path;  // absolute, on this machine
    std::string exportUri;
    std::uint64_t size = 0;
    std::string sha256;  // lower-case hexadecimal
};

// A data object that a BMC exports by itself (CIM). Texts are fit for display.
struct ExportedObject {
    enum class State {
        kRunning,  // the BMC gathers or uploads
        kExported,
        kSkipped,   // of a type that is never exported
        kRefused,   // ExportData returned something other than success
        kFailed,    // it did not return
        kNotTried,  // an earlier one ended the run
    };
    std::string path;
    std::string type;  // its DataCollectionType; empty where it has none
    State state = State::kRunning;
    std::string returned;  // what ExportData returned, where it was refused
    double seconds = 0;
};

// A file that a BMC keeps (IPMI). Texts are fit for display, but for the name.
struct RemoteFile {
    enum class State {
        kRunning,  // on its way
        kFetched,
        kFailed,
        kSkipped,     // not asked for in this mode
        kPassedOver,  // its name is no file name
        kFolder,      // a folder of the BMC, which is not asked for
    };
    std::string name;  // as the BMC sent it: any bytes
    State state = State::kSkipped;
    std::string reason;         // of kFailed, kSkipped and kPassedOver
    bool localTrouble = false;  // kFailed, and this machine is at fault
    std::string path;           // absolute, where it was delivered
    std::uint64_t size = 0;     // kFetched
    std::string sha256;         // kFetched; lower-case hexadecimal
};

// The account of one run, and its two forms at the end: words, or one JSON object. Any thread may
// call any operation; an ending is written once.
class Report {
public:
    explicit Report(const Options& options) : m_options(options) {}

    // What the account lists besides, also where nothing came of it. Before anything else.
    void ListObjects() { m_listsObjects = true; }
    void ListFiles() { m_listsFiles = true; }

    void BeginStep(const std::string& name);
    void EndStep(int code, const std::string& detail = "");
    void SetFacts(const BmcFacts& facts);
    void SetDelivery(const Delivery& delivery);

    // What has become of the object with this number, counted from 0.
    void SetObject(std::size_t number, const ExportedObject& object);

    // The BMC's files, and how many more it has that were never tried.
    void SetFiles(const std::vector<RemoteFile>& files, std::size_t notTried);

    // Writes the ending: results on `out`, reasons on `err`. Gives up after a moment when another
    // thread is stuck inside this object.
    void Write(const Outcome& ending, std::ostream& out, std::ostream& err);

private:
    void CloseStep(int code, const std::string& detail);
    void WriteJson(const Outcome& outcome, std::ostream& out) const;
    void WriteWords(const Outcome& outcome, std::ostream& out) const;
    void WriteFacts(const char* state, std::ostream& out) const;
    void WriteObjects(std::ostream& out) const;
    void WriteFiles(std::ostream& out) const;
    const char* OutcomeName(ExitCode code) const;

    const Options& m_options;
    std::mutex m_lock;
    std::vector<Step> m_steps;
    std::string m_open;  // name of the step that has not ended
    std::chrono::steady_clock::time_point m_openSince;
    BmcFacts m_facts;
    Delivery m_delivery;
    bool m_listsObjects = false;
    bool m_listsFiles = false;
    std::vector<ExportedObject> m_objects;
    std::vector<RemoteFile> m_files;
    std::size_t m_notTried = 0;
};

}  // namespace Kemffdc

#endif
