// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_SESSIONS_H
#define KEMFFDC_REDFISH_SESSIONS_H

#include <chrono>
#include <optional>
#include <set>
#include <string>

#include "cli/Options.h"
#include "cli/http/Transport.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc::Redfish {

// Closes the session that the library opens for a download and leaves open: BMCs have few of them,
// and an open one is a way in. The tool does not know which one it is; it is the one that was not
// there before and belongs to the run's user. Where there are several, none is closed: one may be
// somebody's who works on the BMC right now. One thread at a time.
class DownloadSession {
public:
    // The options and the password are the caller's.
    DownloadSession(const Options& options, const Trust& trust, const Secret& password);

    // Right before the download: which sessions there are. At most `limit` altogether, as below.
    void ListBefore(std::chrono::seconds limit);

    // After it. A sentence for the operator where the session may be open still; else empty.
    std::string Close(std::chrono::seconds limit);

private:
    using Clock = std::chrono::steady_clock;

    void Begin(std::chrono::seconds limit) { m_end = Clock::now() + limit; }
    Answer Ask(const char* method, const std::string& path);
    std::optional<std::set<std::string>> List();
    bool IsOurs(const std::string& session);
    std::string Delete(const std::string& session);

    const Options& m_options;
    Transport m_transport;
    const Login m_login;
    Clock::time_point m_end;
    std::string m_trouble;  // of the last request
    std::optional<std::set<std::string>> m_before;
};

// A session of the tool's own (DSP0266): the answer to the request for it, and its token; empty
// where the answer holds none.
Answer OpenOwnSession(Transport& transport, const std::string& user, const Secret& password,
                      Secret& token);

// Ends it. `location`: of the answer to the request for it; where that leads to no session of this
// service, nothing is done, and it ends when it times out.
void CloseOwnSession(Transport& transport, const Login& login, const std::string& location);

}  // namespace Kemffdc::Redfish

#endif
