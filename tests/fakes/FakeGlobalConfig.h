// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_FAKEGLOBALCONFIG_H
#define VARNEX_TESTS_FAKEGLOBALCONFIG_H

#include <string>
#include <utility>
#include <vector>

namespace fakes {

// The host's configuration. Values hold for the rest of the process, as the code under test reads
// each once.
class FakeConfig {
public:
    static void Set(const std::string& key, int value);

    // Every look-up so far: key and default.
    static std::vector<std::pair<std::string, int>> Lookups();
};

}  // namespace fakes

#endif
