// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_LOGIN_H
#define KEMFFDC_HTTP_LOGIN_H

#include <string>

#include "cli/terminal/Secret.h"

namespace Kemffdc {

// Who asks, as the header line that says so. Empty: nobody says who he is.
struct Login {
    Secret header;
};

// HTTP Basic authentication (RFC 7617), of these very bytes.
Login BasicLogin(const std::string& user, const std::string& password);

// The token of a Redfish session (DSP0266).
Login TokenLogin(const Secret& token);

}  // namespace Kemffdc

#endif
