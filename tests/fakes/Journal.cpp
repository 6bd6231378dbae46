// SPDX-License-Identifier: Apache-2.0
#include "fakes/Journal.h"

#include <utility>

namespace {

std::vector<std::string> g_entries;

}  // namespace

namespace fakes {

void Journal::Append(const std::string& entry) { g_entries.push_back(entry); }

std::vector<std::string> Journal::Take() { return std::exchange(g_entries, {}); }

}  // namespace fakes
