// SPDX-License-Identifier: Apache-2.0
#include "cli/report/Words.h"

#include <ostream>

#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

constexpr char kCheck[] = "check";

// Said by check, and only there: collect would not be the place to learn it.
constexpr char kTrustNote[] =
    "The certificate is shown, not verified. Compare the SHA-256 with the BMC's own; --fingerprint "
    "or --ca-file has it checked before any password leaves.";

void Line(std::ostream& out, const char* label, const std::string& text) {
    if (!text.empty()) out << label << text << "\n";
}

void WriteReached(const RunRecord& record, std::ostream& out) {
    out << "BMC:             ";
    if (record.port != 0) {
        out << record.host << " port " << record.port;
    } else {
        out << "of this machine, in band" << (record.host.empty() ? "" : ", files from ")
            << record.host;
    }
    out << (record.outcome.Ok() ? ", usable through " : ", reached, but of no use through ")
        << record.channel << "\n";
}

// Where it was compared with something that had been there before; else empty.
std::string VerifiedBy(const RunRecord& record) {
    switch (record.facts.certificate->trust) {
        case CertificateTrust::kCaFile:
            return Clean(record.caFile);
        case CertificateTrust::kFingerprint:
            return "--fingerprint";
        case CertificateTrust::kKnown:
            return "known from an earlier run";
        default:
            return "";
    }
}

void WriteCertificate(const RunRecord& record, std::ostream& out) {
    const Certificate& shown = *record.facts.certificate;
    const std::string verifiedBy = VerifiedBy(record);
    out << "Certificate:     SHA-256 " << shown.sha256 << "\n";
    Line(out, "  subject:       ", shown.subject);
    Line(out, "  issuer:        ", shown.issuer + (shown.selfSigned ? " (self-signed)" : ""));
    out << "  valid:         " << shown.notBefore << " to " << shown.notAfter
        << (shown.validNow ? "" : " (NOT VALID NOW)") << "\n";
    Line(out, "  verified by:   ", verifiedBy);
    if (verifiedBy.empty()) {
        out << "Note: " << kTrustNote << "\n";
    }
}

void WriteFacts(const RunRecord& record, std::ostream& out) {
    const BmcFacts& facts = record.facts;
    WriteReached(record, out);
    Line(out, "Service version: ", facts.serviceVersion);
    Line(out, "Product:         ", facts.product);
    Line(out, "Vendor:          ", facts.vendor);
    Line(out, "Model:           ", facts.model);
    Line(out, "Serial number:   ", facts.serial);
    Line(out, "UUID:            ", facts.uuid);
    Line(out, "Firmware:        ", facts.firmware);
    if (facts.certificate) WriteCertificate(record, out);
    Line(out, "Host key:        ", facts.hostKey);
    if (!record.operation.empty()) {
        out << "Operation:       " << record.operation << " (" << record.operationReason << ")\n";
    }
    for (const std::string& note : facts.notes) out << "Note: " << note << "\n";
}

// A folder has no sum of its own.
void WriteDelivered(const Delivery& delivery, std::ostream& out) {
    const bool folder = delivery.sha256.empty();
    out << (folder ? "Folder: " : "Archive: ") << delivery.path << "\n"
        << (folder ? "Size:   " : "Size:    ") << delivery.size << " bytes ("
        << HumanBytes(delivery.size) << ")\n";
    Line(out, "SHA-256: ", delivery.sha256);
}

}  // namespace

void WriteWords(const RunRecord& record, std::ostream& out) {
    const bool reached = record.outcome.Ok() || record.outcome.code == kLimited;
    if (record.command == kCheck) {
        if (reached) WriteFacts(record, out);
        if (reached && record.part) record.part->WriteFound(out);
        return;
    }
    const Delivery& delivery = record.delivery;
    Line(out, "Exported to: ", delivery.exportUri);
    if (!delivery.path.empty()) WriteDelivered(delivery, out);
    const bool brought = !delivery.path.empty() || !delivery.exportUri.empty();
    if (brought && record.part) record.part->Write(out);
}

void WriteReason(const Outcome& outcome, std::ostream& err) {
    if (outcome.Ok()) return;
    err << "kemffdc: " << outcome.reason << " [exit code " << outcome.code << "]" << std::endl;
}

}  // namespace Kemffdc
