// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_WORKERLINE_H
#define KEMFFDC_FLEET_WORKERLINE_H

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "cli/history/HostState.h"

namespace Kemffdc::Fleet {

// What a line of a worker says (docs/json.md): those that concern the conductor.
struct StateTold {
    History::HostState state = History::HostState::kQueued;
};
struct ChannelTold {
    std::string channel;
};
struct OperationTold {
    std::string operation;
};
struct WorkTold {
    std::optional<int> percent;
    std::string message;
};
struct BytesTold {
    std::uint64_t bytes = 0;
    std::uint64_t expected = 0;  // 0: not known
};
struct TurnAsked {};
// Its last line.
struct ResultTold {
    int exitCode = 0;
    std::string outcome;
    std::string reason;
    bool retryable = false;
};
struct SomethingElse {};

using WorkerLine = std::variant<StateTold, ChannelTold, OperationTold, WorkTold, BytesTold,
                                TurnAsked, ResultTold, SomethingElse>;

// None: it is nothing that a worker says.
std::optional<WorkerLine> ReadWorkerLine(const std::string& line);

}  // namespace Kemffdc::Fleet

#endif
