// SPDX-License-Identifier: Apache-2.0
#include "cli/report/Report.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cmath>
#include <iterator>
#include <ostream>

#include "LogSink.h"
#include "cli/terminal/LockSoon.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

namespace json = boost::json;

constexpr int kSchema = 1;
constexpr std::size_t kMaxShownName = 255;

// Said by check, and only there: collect would not be the place to learn it.
constexpr char kTrustNote[] =
    "The certificate is shown, not verified. Compare the SHA-256 with the BMC's own, or name your "
    "CA with --ca-file: then it is checked before any password leaves.";

// Null in JSON for what is not known.
json::value TextOrNull(const std::string& text) {
    if (text.empty()) return nullptr;
    json::string valid(ValidUtf8(text));  // no braces around it: they would make an array
    return valid;
}

// In band there is none.
json::value PortOrNull(std::uint16_t port) {
    if (port == 0) return nullptr;
    return port;
}

json::object StepObject(const Step& step) {
    return {{"name", step.name},
            {"code", step.code},
            {"seconds", std::round(step.seconds * 1000) / 1000},
            {"detail", TextOrNull(step.detail)}};
}

json::value CertificateValue(const std::optional<Certificate>& certificate) {
    if (!certificate) return nullptr;
    return json::object{{"sha256", certificate->sha256},
                        {"subject", TextOrNull(certificate->subject)},
                        {"issuer", TextOrNull(certificate->issuer)},
                        {"not_before", TextOrNull(certificate->notBefore)},
                        {"not_after", TextOrNull(certificate->notAfter)},
                        {"valid_now", certificate->validNow},
                        {"self_signed", certificate->selfSigned},
                        {"verified", certificate->verified}};
}

json::object FactsObject(const BmcFacts& facts) {
    json::array notes;
    for (const std::string& note : facts.notes) notes.push_back(TextOrNull(note));
    return {{"service_version", TextOrNull(facts.serviceVersion)},
            {"product", TextOrNull(facts.product)},
            {"vendor", TextOrNull(facts.vendor)},
            {"model", TextOrNull(facts.model)},
            {"firmware", TextOrNull(facts.firmware)},
            {"certificate", CertificateValue(facts.certificate)},
            {"notes", std::move(notes)}};
}

const char* StateName(ExportedObject::State state) {
    switch (state) {
        case ExportedObject::State::kRunning:
            return "not-ended";
        case ExportedObject::State::kExported:
            return "exported";
        case ExportedObject::State::kSkipped:
            return "skipped";
        case ExportedObject::State::kRefused:
            return "refused";
        case ExportedObject::State::kFailed:
            return "failed";
        case ExportedObject::State::kNotTried:
            return "not-tried";
    }
    return "unknown";
}

json::object ObjectObject(const ExportedObject& object) {
    const bool refused = object.state == ExportedObject::State::kRefused;
    const bool exported = object.state == ExportedObject::State::kExported;
    json::value returned = nullptr;
    if (refused) returned = json::string(ValidUtf8(object.returned));
    if (exported) returned = "0";
    return {{"path", TextOrNull(object.path)},
            {"collection_type", TextOrNull(object.type)},
            {"outcome", StateName(object.state)},
            {"return_value", std::move(returned)},
            {"seconds", std::round(object.seconds * 1000) / 1000}};
}

const char* StateName(RemoteFile::State state) {
    switch (state) {
        case RemoteFile::State::kRunning:
            return "not-ended";
        case RemoteFile::State::kFetched:
            return "fetched";
        case RemoteFile::State::kFailed:
            return "failed";
        case RemoteFile::State::kSkipped:
            return "skipped";
        case RemoteFile::State::kPassedOver:
            return "passed-over";
        case RemoteFile::State::kFolder:
            return "folder";
    }
    return "unknown";
}

json::object FileObject(const RemoteFile& file) {
    const bool fetched = file.state == RemoteFile::State::kFetched;
    return {{"name", TextOrNull(file.name)},
            {"outcome", StateName(file.state)},
            {"path", TextOrNull(file.path)},
            {"size", fetched ? json::value(file.size) : json::value(nullptr)},
            {"sha256", TextOrNull(file.sha256)},
            {"reason", TextOrNull(file.reason)}};
}

void Line(std::ostream& out, const char* label, const std::string& text) {
    if (!text.empty()) out << label << text << "\n";
}

}  // namespace

void Report::BeginStep(const std::string& name) {
    std::lock_guard<std::mutex> hold(m_lock);
    m_open = name;
    m_openSince = std::chrono::steady_clock::now();
}

void Report::EndStep(int code, const std::string& detail) {
    std::lock_guard<std::mutex> hold(m_lock);
    CloseStep(code, detail);
}

void Report::CloseStep(int code, const std::string& detail) {
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - m_openSince;
    m_steps.push_back({m_open, code, time.count(), Varnex::WithoutHiddenSecrets(detail)});
    m_open.clear();
}

void Report::SetFacts(const BmcFacts& facts) {
    std::lock_guard<std::mutex> hold(m_lock);
    m_facts = facts;
    for (std::string* text : {&m_facts.serviceVersion, &m_facts.product, &m_facts.vendor,
                              &m_facts.model, &m_facts.firmware}) {
        *text = Varnex::WithoutHiddenSecrets(*text);
    }
}

void Report::SetDelivery(const Delivery& delivery) {
    std::lock_guard<std::mutex> hold(m_lock);
    m_delivery = delivery;
    m_delivery.exportUri = Varnex::WithoutHiddenSecrets(delivery.exportUri);
}

void Report::SetObject(std::size_t number, const ExportedObject& object) {
    std::lock_guard<std::mutex> hold(m_lock);
    if (m_objects.size() <= number) m_objects.resize(number + 1);
    ExportedObject& kept = m_objects[number];
    kept = object;
    for (std::string* text : {&kept.path, &kept.type, &kept.returned})
        *text = Varnex::WithoutHiddenSecrets(*text);
}

void Report::SetFiles(const std::vector<RemoteFile>& files, std::size_t notTried) {
    std::lock_guard<std::mutex> hold(m_lock);
    m_files = files;
    m_notTried = notTried;
    for (RemoteFile& file : m_files) {
        const std::string name = Varnex::WithoutHiddenSecrets(file.name);
        if (!file.path.empty() && name != file.name) {
            file.path = file.path.substr(0, file.path.rfind('/') + 1) + name;
        }
        file.name = name;
        file.reason = Varnex::WithoutHiddenSecrets(file.reason);
    }
}

void Report::Write(const Outcome& ending, std::ostream& out, std::ostream& err) {
    const std::unique_lock<std::mutex> hold = LockSoon(m_lock);
    if (!hold.owns_lock()) return;
    const Outcome outcome{ending.code, Varnex::WithoutHiddenSecrets(ending.reason), ending.cause};
    if (!m_open.empty()) CloseStep(-1, "not ended");
    if (!outcome.Ok()) {
        err << "kemffdc: " << outcome.reason << " [exit code " << outcome.code << "]" << std::endl;
    }
    if (m_options.json) {
        WriteJson(outcome, out);
    } else if (outcome.Ok() || outcome.code == kLimited || !m_delivery.path.empty()) {
        WriteWords(outcome, out);  // what came is said, also where something else did not
    }
    out.flush();
}

const char* Report::OutcomeName(ExitCode code) const {
    switch (code) {
        case kDone:
            if (m_options.command == Command::kCheck) return "checked";
            return m_delivery.exportUri.empty() ? "downloaded" : "exported";
        case kUsage:
            return "usage";
        case kNotConnected:
            return "not-connected";
        case kExportRefused:
            return "export-refused";
        case kTaskFailed:
            return "task-failed";
        case kNotFinished:
            return "not-finished";
        case kDownloadFailed:
            return "download-failed";
        case kLocalFile:
            return "local-file";
        case kFilesMissing:
            return "files-missing";
        case kLimited:
            return "limited";
        case kInterrupted:
            return "interrupted";
    }
    return "unknown";
}

void Report::WriteJson(const Outcome& outcome, std::ostream& out) const {
    json::array steps;
    for (const Step& step : m_steps) steps.push_back(StepObject(step));
    const bool downloaded = !m_delivery.path.empty();
    json::object object{{"schema", kSchema},
                        {"version", KEMFFDC_VERSION},
                        {"command", m_options.command == Command::kCheck ? "check" : "collect"},
                        {"channel", m_options.via},
                        {"host", TextOrNull(m_options.host)},
                        {"port", PortOrNull(m_options.port)},
                        {"outcome", OutcomeName(outcome.code)},
                        {"exit_code", static_cast<int>(outcome.code)},
                        {"reason", TextOrNull(outcome.reason)},
                        {"steps", std::move(steps)},
                        {"path", TextOrNull(m_delivery.path)},
                        {"size", downloaded ? json::value(m_delivery.size) : json::value(nullptr)},
                        {"sha256", TextOrNull(m_delivery.sha256)},
                        {"export_uri", TextOrNull(m_delivery.exportUri)},
                        {"bmc", FactsObject(m_facts)}};
    if (m_listsObjects) {
        json::array objects;
        for (const ExportedObject& one : m_objects) objects.push_back(ObjectObject(one));
        object["objects"] = std::move(objects);
    }
    if (m_listsFiles) {
        json::array files;
        for (const RemoteFile& one : m_files) files.push_back(FileObject(one));
        object["files"] = std::move(files);
        object["files_not_tried"] = m_notTried;
    }
    out << json::serialize(object) << "\n";
}

void Report::WriteWords(const Outcome& outcome, std::ostream& out) const {
    if (m_options.command == Command::kCheck) {
        WriteFacts(outcome.Ok() ? ", usable through " : ", reached, but of no use through ", out);
        return;
    }
    Line(out, "Exported to: ", m_delivery.exportUri);
    WriteObjects(out);
    if (m_delivery.path.empty()) return;
    if (m_listsFiles) {
        WriteFiles(out);
        return;
    }
    out << "Archive: " << m_delivery.path << "\n"
        << "Size:    " << m_delivery.size << " bytes (" << HumanBytes(m_delivery.size) << ")\n"
        << "SHA-256: " << m_delivery.sha256 << "\n";
}

void Report::WriteObjects(std::ostream& out) const {
    for (const ExportedObject& object : m_objects) {
        const bool skipped = object.state == ExportedObject::State::kSkipped;
        const std::chrono::milliseconds time(static_cast<long long>(object.seconds * 1000));
        out << "  " << object.path;
        if (!object.type.empty()) out << ", type " << object.type;
        out << (skipped ? ": skipped, objects of this type are never exported"
                        : ": uploaded by the BMC in " + Elapsed(time))
            << "\n";
    }
}

void Report::WriteFiles(std::ostream& out) const {
    out << "Folder: " << m_delivery.path << "\n"
        << "Size:   " << m_delivery.size << " bytes (" << HumanBytes(m_delivery.size) << ")\n";
    for (const RemoteFile& file : m_files) {
        out << "  " << Clean(file.name, kMaxShownName);
        if (file.state == RemoteFile::State::kFetched) {
            out << ": " << file.size << " bytes, SHA-256 " << file.sha256 << "\n";
        } else if (file.state == RemoteFile::State::kSkipped) {
            out << ": skipped, " << file.reason << "\n";
        } else if (file.state == RemoteFile::State::kFolder) {
            out << ": a folder, passed over\n";
        } else {
            out << ": NOT FETCHED: " << file.reason << "\n";
        }
    }
    if (m_notTried > 0) out << "  NOT TRIED: " << m_notTried << " more\n";
}

void Report::WriteFacts(const char* state, std::ostream& out) const {
    out << "BMC:             ";
    if (m_options.host.empty()) {
        out << "of this machine, in band";
    } else {
        out << m_options.host << " port " << m_options.port;
    }
    out << state << m_options.via << "\n";
    Line(out, "Service version: ", m_facts.serviceVersion);
    Line(out, "Product:         ", m_facts.product);
    Line(out, "Vendor:          ", m_facts.vendor);
    Line(out, "Model:           ", m_facts.model);
    Line(out, "Firmware:        ", m_facts.firmware);
    if (m_facts.certificate) {
        const Certificate& shown = *m_facts.certificate;
        out << "Certificate:     SHA-256 " << shown.sha256 << "\n";
        Line(out, "  subject:       ", shown.subject);
        Line(out, "  issuer:        ", shown.issuer + (shown.selfSigned ? " (self-signed)" : ""));
        out << "  valid:         " << shown.notBefore << " to " << shown.notAfter
            << (shown.validNow ? "" : " (NOT VALID NOW)") << "\n";
        if (shown.verified) {
            Line(out, "  verified by:   ", Clean(m_options.caFile));
        } else {
            out << "Note: " << kTrustNote << "\n";
        }
    }
    for (const std::string& note : m_facts.notes) out << "Note: " << note << "\n";
}

}  // namespace Kemffdc
