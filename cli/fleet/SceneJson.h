// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_SCENEJSON_H
#define KEMFFDC_FLEET_SCENEJSON_H

#include <boost/json.hpp>

#include "cli/fleet/Scene.h"

namespace Kemffdc::Fleet {

// A fleet run at a moment as JSON (docs/json.md). Its reports tell more of each host: these objects
// are for who looks on.

// `exitCode`: -1 for a run that has not ended, or was killed.
boost::json::object SceneObject(const Scene& scene, int exitCode);
boost::json::object SceneHostObject(const SceneHost& host);

}  // namespace Kemffdc::Fleet

#endif
