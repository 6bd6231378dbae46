// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_CERTIFICATEJUDGE_H
#define KEMFFDC_HTTP_CERTIFICATEJUDGE_H

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/Options.h"
#include "cli/history/KnownBmcs.h"
#include "cli/http/Trust.h"
#include "cli/report/Certificate.h"

namespace Kemffdc {

// Judges the certificates that one BMC shows during a run, by what the options name: a file of CAs,
// a fingerprint, nothing at all (--insecure), and else trust on first use. Then the first
// certificate of a host and port is taken and remembered in the state folder, and from then on
// another one is refused, unless --accept-new-certificate lets it take the other's place. What
// cannot be remembered holds for this run. Any thread.
class CertificateJudge {
public:
    // What has been found, for the operator.
    class Audience {
    public:
        virtual ~Audience() = default;
        virtual void Trusted(CertificateTrust how) = 0;
        virtual void Noted(const std::string& sentence) = 0;  // fit for display
    };

    // `options` and `audience` must outlive the object.
    CertificateJudge(const Options& options, Audience& audience);

    // Whether anything can be judged at all: kLocalFile where the CAs or the known certificates
    // cannot be read. To be asked before anything is sent.
    Outcome Prepare() const;

    // For transports. Refers to this object, which must outlive them.
    Trust AsTrust();

private:
    // What this run knows of a port.
    struct Place {
        bool isRead = false;     // `known` is what is remembered
        bool isTrusted = false;  // a certificate was found good
        std::vector<History::KnownBmc> known;
    };

    std::string Judge(std::uint16_t port, const Certificate& shown);
    std::string JudgeByFingerprint(std::uint16_t port, const Certificate& shown);
    std::string JudgeByFirstUse(std::uint16_t port, const Certificate& shown);
    std::string Read(std::uint16_t port, Place& place) const;
    void Remember(std::uint16_t port, const Certificate& shown, Place& place);
    void Replace(std::uint16_t port, const Certificate& shown, Place& place);
    std::string Refused(std::uint16_t port, const Certificate& shown, const Place& place) const;
    std::string Named(std::uint16_t port) const;
    void Trusted(Place& place, CertificateTrust how);

    const Options& m_options;
    Audience& m_audience;
    const std::string m_fingerprint;  // as History::KnownBmc writes it; empty: none is named
    const std::string m_stateFolder;  // empty: there is none
    History::KnownBmcs m_known;
    std::mutex m_lock;
    std::map<std::uint16_t, Place> m_places;
};

}  // namespace Kemffdc

#endif
