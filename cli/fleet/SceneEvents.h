// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_SCENEEVENTS_H
#define KEMFFDC_FLEET_SCENEEVENTS_H

#include <ostream>

#include "cli/fleet/Scene.h"
#include "cli/report/EventLines.h"

namespace Kemffdc::Fleet {

// What --events prints of a fleet: a line for each change of a host, and the whole run as the last
// one (docs/json.md).
class SceneEvents : public Audience {
public:
    // Lines go to `descriptor`: see EventLines. `out` is bad once nobody has read the last one.
    SceneEvents(int descriptor, std::ostream& out) : m_out(out), m_lines(descriptor) {}

    void Begun(const Scene& scene) override;
    void Changed(const Scene& scene, std::size_t host) override;
    void Tick(const Scene& /*scene*/) override {}
    void Noted(const std::string& sentence) override;
    void Ended(const Scene& scene, int exitCode) override;

private:
    std::ostream& m_out;
    EventLines m_lines;
};

}  // namespace Kemffdc::Fleet

#endif
