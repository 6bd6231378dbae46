// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Knock.h"

#include "cli/Channel.h"
#include "cli/http/Transport.h"
#include "cli/redfish/Json.h"
#include "cli/redfish/Requests.h"

namespace Kemffdc::Redfish {
namespace {

constexpr long kStarting = 503;

bool IsRefusal(long httpCode) { return httpCode == 400 || httpCode == 401 || httpCode == 403; }

}  // namespace

Outcome Knock(const Options& options) {
    const Endpoint endpoint = EndpointOf(options);
    Transport https(endpoint, {}, kRedfishService, static_cast<int>(kKnockTime.count()));
    const Answer answer = https.Get("/redfish/v1/");
    if (answer.failedAt != Stage::kDone) {
        return Failure(kNotConnected, CauseOf(answer.failedAt), answer.reason);
    }
    // Some services ask for credentials already here.
    if (answer.httpCode == kStarting || IsRefusal(answer.httpCode)) return {};
    const auto root = ReadObject(answer.body);
    if (answer.IsSuccess() && root && root->contains("RedfishVersion")) return {};
    return Failure(kNotConnected, Cause::kNoService,
                   endpoint.Place() + " answers, but not as a Redfish service (HTTP " +
                       std::to_string(answer.httpCode) + ").");
}

}  // namespace Kemffdc::Redfish
