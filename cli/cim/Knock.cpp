// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Knock.h"

#include "cli/Channel.h"
#include "cli/cim/Options.h"
#include "cli/cim/Preflight.h"
#include "cli/cim/Requests.h"
#include "cli/http/Transport.h"

namespace Kemffdc::Cim {
namespace {

constexpr long kNoCredentials = 401;

}  // namespace

Outcome Knock(const Options& options) {
    const Endpoint endpoint = EndpointOf(options, !Own(options).plain);
    Transport transport(endpoint, {}, kCimServer, static_cast<int>(kKnockTime.count()));
    const Answer answer = Enumerate(transport, NamespaceOf(options), kServiceClass, {});
    if (answer.failedAt != Stage::kDone) {
        return Failure(kNotConnected, CauseOf(answer.failedAt), answer.reason);
    }
    if (answer.IsSuccess() || answer.httpCode == kNoCredentials) return {};
    return Failure(kNotConnected, Cause::kNoService,
                   endpoint.Place() + " answers, but not as a CIM server (HTTP " +
                       std::to_string(answer.httpCode) + ").");
}

}  // namespace Kemffdc::Cim
