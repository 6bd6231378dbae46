// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/SceneEvents.h"

#include <boost/json.hpp>

#include "cli/fleet/SceneJson.h"
#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {

void SceneEvents::Begun(const Scene& scene) {
    m_lines.Tell("fleet-begun", {{"version", KEMFFDC_VERSION},
                                 {"fleet", scene.fleet},
                                 {"command", "fleet " + scene.command},
                                 {"folder", TextOrNull(scene.folder)},
                                 {"count", scene.hosts.size()}});
}

void SceneEvents::Changed(const Scene& scene, std::size_t host) {
    m_lines.Tell("host-changed", {{"host", SceneHostObject(scene.hosts.at(host))}});
}

void SceneEvents::Noted(const std::string& sentence) {
    m_lines.Tell("note", {{"text", TextOrNull(Clean(sentence, 1000))}});
}

void SceneEvents::Ended(const Scene& scene, int exitCode) {
    if (!m_lines.Finish(SceneObject(scene, exitCode))) m_out.setstate(std::ios::badbit);
}

}  // namespace Kemffdc::Fleet
