// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_ESTIMATE_H
#define KEMFFDC_FLEET_ESTIMATE_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "cli/fleet/Scene.h"

namespace Kemffdc::Fleet {

// How long the run still takes, should the hosts that are left be like those that are done. None
// where that says nothing: before a host is done, and where those at work have already taken
// longer.
std::optional<std::chrono::seconds> TimeLeft(const Scene& scene);

// "about 4 min left", "less than a minute left", "time left unknown".
std::string TimeLeftText(std::optional<std::chrono::seconds> left);

// What comes over the network, of all hosts together.
class Throughput {
public:
    // To be called several times a second.
    void See(const Scene& scene);

    // Over the last five seconds. A host that begins anew takes nothing away.
    std::uint64_t BytesPerSecond() const;

private:
    struct Sample {
        WallTime at;
        std::uint64_t bytes = 0;  // since the first one
    };

    std::vector<std::uint64_t> m_bytes;  // of each host, as seen last
    std::deque<Sample> m_samples;
};

}  // namespace Kemffdc::Fleet

#endif
