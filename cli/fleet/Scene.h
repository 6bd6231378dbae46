// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_SCENE_H
#define KEMFFDC_FLEET_SCENE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/history/HostState.h"

namespace Kemffdc::Fleet {

using WallTime = std::chrono::system_clock::time_point;  // the epoch: not yet

// One BMC of the run, as it is now.
struct SceneHost {
    std::string name;       // unique in the run
    std::string channel;    // empty until one has been found
    std::string operation;  // of the channel, where it knows several and one is chosen
    History::HostState state = History::HostState::kQueued;
    WallTime since;              // of the state
    WallTime begun;              // of the first attempt
    std::optional<int> percent;  // of the BMC's gathering
    std::string message;         // newest of the BMC; may be anything, as all texts below
    std::uint64_t bytes = 0;     // of the download, as the next
    std::uint64_t expected = 0;  // 0: the BMC did not say
    int attempts = 0;
    std::string outcome;  // once an attempt has ended: "downloaded", "login-refused" ...
    std::string reason;   // a sentence; empty where it did well
};

// What a fleet run looks like at a moment. Kept by the conductor; `fleet status` fills it from the
// journal.
struct Scene {
    std::int64_t fleet = 0;  // the number of the run
    std::string command;     // "collect", "check"
    std::string folder;      // absolute
    WallTime begun;          // of the run, or of its newest resumption
    WallTime now;
    bool ended = false;
    bool live = false;             // its conductor works
    std::vector<SceneHost> hosts;  // in the order of the plan
};

// Whoever shows a running fleet. Called on the conductor's thread; must not block.
class Audience {
public:
    virtual ~Audience() = default;

    virtual void Begun(const Scene& scene) = 0;
    virtual void Changed(const Scene& scene, std::size_t host) = 0;  // any change of one host
    virtual void Tick(const Scene& scene) = 0;                       // four times a second
    virtual void Noted(const std::string& sentence) = 0;             // guard, limits, signals
    // `exitCode`: -1 where the run was killed, as somebody else sees it. May block until it is
    // read.
    virtual void Ended(const Scene& scene, int exitCode) = 0;
};

}  // namespace Kemffdc::Fleet

#endif
