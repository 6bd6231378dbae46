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

constexpr std::uint64_t kBusyRate = 47395635;  // bytes a second

// In the middle: something of everything.
inline Scene Busy() {
    Scene scene = RunOf(192);
    AddMany(scene, 1, 120, HostState::kDone, 180, 20);
    for (SceneHost& host : scene.hosts) host.bytes = 37 << 20;
    AddMany(scene, 121, 123, HostState::kFailed, 4, 1);
    AddMany(scene, 124, 131, HostState::kTransferring, 150, 70);
    for (std::size_t i = 123; i < 131; ++i) {
        scene.hosts[i].bytes = 13002342;
        scene.hosts[i].expected = 104857600;
    }
    AddMany(scene, 132, 151, HostState::kWaiting, 150, 72);
    AddMany(scene, 152, 290, HostState::kGathering, 90, 80);
    for (std::size_t i = 151; i < 290; ++i) scene.hosts[i].percent = 85;
    scene.hosts[151].begun = At(10);
    scene.hosts[151].message = "Dumping processor 1.";
    SceneHost& pausing = Add(scene, "bmc291", HostState::kPausing, 190, 4);
    pausing.reason = "The BMC is busy with another gathering.";
    AddMany(scene, 292, 300, HostState::kStarting, 190, 190);
    AddMany(scene, 301, 400, HostState::kQueued);
    return scene;
}

}  // namespace MadeScene

#endif
