// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_CLI_FLEET_MADESCENE_H
#define TESTS_CLI_FLEET_MADESCENE_H

#include <string>

#include "cli/fleet/Scene.h"

namespace MadeScene {

using Kemffdc::Fleet::Scene;
using Kemffdc::Fleet::SceneHost;
using Kemffdc::Fleet::WallTime;
using Kemffdc::History::HostState;

// The run begins at this second, whatever the clock says.
inline WallTime At(double seconds) {
    return WallTime() +
           std::chrono::milliseconds(1700000000000 + static_cast<long long>(seconds * 1000));
}

inline Scene RunOf(int now) {
    Scene scene;
    scene.fleet = 12;
    scene.command = "collect";
    scene.folder = "/srv/ffdc/run";
    scene.begun = At(0);
    scene.now = At(now);
    scene.live = true;
    return scene;
}

// One more host, which has been in this state since second `since`, and begun at `begun`; -1:
// never.
inline SceneHost& Add(Scene& scene, const std::string& name, HostState state, double since = 0,
                      double begun = -1) {
    SceneHost host;
    host.name = name;
    host.channel = "redfish";
    host.state = state;
    host.since = At(since);
    if (begun >= 0) {
        host.begun = At(begun);
        host.attempts = 1;
    }
    scene.hosts.push_back(host);
    return scene.hosts.back();
}

inline std::string Numbered(int number) {
    const std::string digits = std::to_string(number);
    return "bmc" + std::string(3 - digits.size(), '0') + digits;
}

inline void AddMany(Scene& scene, int from, int to, HostState state, double since = 0,
                    double begun = -1) {
    for (int i = from; i <= to; ++i) Add(scene, Numbered(i), state, since, begun);
}

}  // namespace MadeScene

#endif
