// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CERTIFICATEGUARD_H
#define KEMFFDC_CERTIFICATEGUARD_H

#include "cli/Context.h"
#include "cli/http/Transport.h"

namespace Kemffdc {

// Seconds for one request of the tool's own, as for the library's.
int RequestSeconds();

// Looks at the BMC's certificate again, where not everybody is trusted: the library verifies none
// before it sends the password.
class CertificateGuard {
public:
    CertificateGuard(Context& run, Endpoint endpoint, const ServiceKind& kind);

    // As a step of the run, which only a failure shows.
    Outcome Check();

    // The same after the library's last request. A BMC that cannot be reached any more is no
    // failure then, and is noted.
    Outcome CheckAfterwards();

    // Right before a request of the library, on its thread. A BMC may be out of reach for as long
    // as a request may take; then, or where somebody else is in its place, the run ends at once.
    void CheckRequest();

private:
    Answer Look() const;
    Outcome Lost(const Answer& answer) const;

    Context& m_run;
    const Endpoint m_endpoint;
    const ServiceKind& m_kind;
};

}  // namespace Kemffdc

#endif
