// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_SESSION_H
#define KEMFFDC_REDFISH_SESSION_H

#include <functional>
#include <string>

#include "cli/Context.h"
#include "cli/http/Transport.h"
#include "cli/redfish/Requests.h"

namespace Kemffdc::Redfish {

// All requests of a run over one session of its own (DSP0266). It is closed with the run's
// farewell. A BMC that forgets it in the middle gets a new one, once; one that has no sessions is
// asked with the password each time. One thread.
class Session {
public:
    explicit Session(Context& run, const ServiceKind& kind = kRedfishService);

    // A failure where the BMC refuses the credentials, or does not answer.
    Outcome Open();

    Answer Get(const std::string& path);
    Answer Head(const std::string& path);
    Answer Post(const std::string& path, const std::string& body);
    Answer Delete(const std::string& path);

    // After an answer of 401: whether there is a new one, and the request may be made again.
    bool Renew();

    // Of the session; empty where there is none and the password is to be used.
    const Secret& Token() const { return m_token; }

    const std::string& Address() const { return m_transport.Address(); }

private:
    Answer Repeatable(const std::function<Answer()>& request);
    Login ItsLogin() const;
    void OweEnd(const std::string& location);

    Context& m_run;
    Transport m_transport;
    Secret m_token;
    bool m_renewed = false;
};

}  // namespace Kemffdc::Redfish

#endif
