// SPDX-License-Identifier: Apache-2.0
#include "cli/http/Login.h"

#include "shared/Base64.h"

namespace Kemffdc {
Login BasicLogin(const std::string& user, const std::string& password) {
    const Secret both(user + ":" + password);
    const Secret encoded(shared::ToBase64(both.Reveal()));
    return {Secret("Authorization: Basic " + encoded.Reveal())};
}

Login TokenLogin(const Secret& token) { return {Secret("X-Auth-Token: " + token.Reveal())}; }

}  // namespace Kemffdc
