// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_PICTURE_H
#define KEMFFDC_FLEET_PICTURE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/fleet/Scene.h"
#include "cli/terminal/OwnTerminal.h"

namespace Kemffdc::Fleet {

// A scene in words. All that came from a BMC is made fit for display.

using Rate = std::optional<std::uint64_t>;  // bytes a second; none: not known

// The live table: how far the run is, how many hosts are where, and those that have been at work
// for the longest time. Narrower than the terminal, and lower than it.
std::vector<std::string> Table(const Scene& scene, Rate bytesPerSecond, TerminalSize size);

// The same as one line of any length, without the hosts.
std::string StateLine(const Scene& scene, Rate bytesPerSecond);

// That one host has failed, and why.
std::string FailureLine(const Scene& scene, const SceneHost& host);

// "0:42", since the run began.
std::string ElapsedText(const Scene& scene);

// Hosts that have what the run was to bring them.
std::size_t CountDone(const Scene& scene);
std::uint64_t BytesOf(const Scene& scene);

}  // namespace Kemffdc::Fleet

#endif
