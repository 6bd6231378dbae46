// SPDX-License-Identifier: Apache-2.0
#include "cli/http/CertificateJudge.h"

#include <algorithm>

#include "cli/history/StateFolder.h"
#include "cli/http/CaFile.h"

namespace Kemffdc {
namespace {

constexpr std::uint16_t kAnyPort = 1;

bool Holds(const std::vector<History::KnownBmc>& known, const std::string& sha256) {
    return std::any_of(known.begin(), known.end(),
                       [&](const History::KnownBmc& one) { return one.sha256 == sha256; });
}

std::string Shown(const Certificate& shown) { return "SHA-256 " + shown.sha256; }

}  // namespace

CertificateJudge::CertificateJudge(const Options& options, Audience& audience)
    : m_options(options),
      m_audience(audience),
      m_fingerprint(History::ReadFingerprint(options.fingerprint)),
      m_stateFolder(History::StateFolder(options.stateDir)),
      m_known(m_stateFolder) {}

Outcome CertificateJudge::Prepare() const {
    if (!m_options.caFile.empty()) return CheckCaFile(m_options.caFile);
    const bool remembers = m_fingerprint.empty() && !m_options.insecure && !m_stateFolder.empty();
    std::vector<History::KnownBmc> known;
    return remembers ? m_known.Find(m_options.host, kAnyPort, known) : Outcome{};
}

Trust CertificateJudge::AsTrust() {
    if (!m_options.caFile.empty()) return {m_options.caFile, nullptr};
    if (m_options.insecure) return {"", nullptr};
    return {"",
            [this](std::uint16_t port, const Certificate& shown) { return Judge(port, shown); }};
}

std::string CertificateJudge::Judge(std::uint16_t port, const Certificate& shown) {
    const std::lock_guard<std::mutex> hold(m_lock);
    return m_fingerprint.empty() ? JudgeByFirstUse(port, shown) : JudgeByFingerprint(port, shown);
}

std::string CertificateJudge::JudgeByFingerprint(std::uint16_t port, const Certificate& shown) {
    Place& place = m_places[port];
    place.known = {{m_fingerprint, 0}};
    if (shown.sha256 != m_fingerprint) return Refused(port, shown, place);
    Trusted(place, CertificateTrust::kFingerprint);
    return "";
}

std::string CertificateJudge::JudgeByFirstUse(std::uint16_t port, const Certificate& shown) {
    Place& place = m_places[port];
    std::string unreadable = Read(port, place);
    if (!unreadable.empty()) return unreadable;
    if (place.known.empty()) Remember(port, shown, place);
    if (Holds(place.known, shown.sha256)) {
        Trusted(place, CertificateTrust::kKnown);
        return "";
    }
    if (place.isTrusted || !m_options.acceptNewCertificate) return Refused(port, shown, place);
    Replace(port, shown, place);
    return "";
}

// Once for each port: what this run has found holds until its end.
std::string CertificateJudge::Read(std::uint16_t port, Place& place) const {
    if (place.isRead) return "";
    if (!m_stateFolder.empty()) {
        const Outcome outcome = m_known.Find(m_options.host, port, place.known);
        if (!outcome.Ok()) return outcome.reason;
    }
    place.isRead = true;
    return "";
}

void CertificateJudge::Remember(std::uint16_t port, const Certificate& shown, Place& place) {
    const Outcome outcome = m_known.Remember(m_options.host, port, shown.sha256, place.known);
    // Somebody was quicker: then it is theirs that counts.
    if (outcome.Ok() && !Holds(place.known, shown.sha256)) return;
    const std::string isNew = Named(port) + ", " + Shown(shown) + ", is new, is accepted ";
    m_audience.Noted(outcome.Ok() ? isNew + "and remembered in " + m_known.Path() + "."
                                  : isNew + "and cannot be remembered: " + outcome.reason);
    if (!outcome.Ok()) place.known = {{shown.sha256, 0}};
    Trusted(place, CertificateTrust::kFirstUse);
}

void CertificateJudge::Replace(std::uint16_t port, const Certificate& shown, Place& place) {
    const Outcome outcome = m_known.Replace(m_options.host, port, shown.sha256);
    const std::string isNew =
        Named(port) + ", " + Shown(shown) + ", is accepted in the place of the one that was known ";
    m_audience.Noted(outcome.Ok() ? isNew + "in " + m_known.Path() + "."
                                  : isNew + "and cannot be remembered: " + outcome.reason);
    place.known = {{shown.sha256, 0}};
    Trusted(place, CertificateTrust::kReplaced);
}

std::string CertificateJudge::Refused(std::uint16_t port, const Certificate& shown,
                                      const Place& place) const {
    const std::string other = " It has " + Shown(shown) + ".";
    if (place.isTrusted) {
        return Named(port) + " was in order at the beginning and is not any more." + other +
               " Somebody else may answer there: if the password may have gone to him, change it.";
    }
    if (!m_fingerprint.empty()) {
        return Named(port) + " is not the one that --fingerprint names." + other +
               " The password was not sent. Somebody may be in the BMC's place, or the BMC has a "
               "new certificate: compare with the BMC's own.";
    }
    return Named(port) + " is not the one that is known (" + m_known.Path() + ", line " +
           std::to_string(place.known.front().line) + ")." + other +
           " The password was not sent. Somebody may be in the BMC's place. If the BMC has a new "
           "certificate, compare with its own and use --accept-new-certificate.";
}

std::string CertificateJudge::Named(std::uint16_t port) const {
    return "The certificate of " + m_options.host + " port " + std::to_string(port);
}

// Only what was found first is told.
void CertificateJudge::Trusted(Place& place, CertificateTrust how) {
    if (!place.isTrusted) m_audience.Trusted(how);
    place.isTrusted = true;
}

}  // namespace Kemffdc
