// SPDX-License-Identifier: Apache-2.0
#include "cli/history/HostState.h"

#include <algorithm>
#include <array>

namespace Kemffdc::History {
namespace {

// At the place of its state.
constexpr std::array<const char*, 11> kNames{"queued",    "starting", "reached",      "exporting",
                                             "gathering", "waiting",  "transferring", "pausing",
                                             "done",      "failed",   "stopped"};
static_assert(kNames.size() == static_cast<std::size_t>(HostState::kStopped) + 1);

}  // namespace

const char* NameOf(HostState state) { return kNames.at(static_cast<std::size_t>(state)); }

std::optional<HostState> HostStateNamed(const std::string& name) {
    const auto* const found = std::find(kNames.begin(), kNames.end(), name);
    if (found == kNames.end()) return std::nullopt;
    return static_cast<HostState>(found - kNames.begin());
}

bool HasEnded(HostState state) {
    return state == HostState::kDone || state == HostState::kFailed || state == HostState::kStopped;
}

}  // namespace Kemffdc::History
