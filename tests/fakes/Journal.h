// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_JOURNAL_H
#define VARNEX_TESTS_JOURNAL_H

#include <string>
#include <vector>

namespace fakes {

// What several fakes were asked for, in the one order in which it happened. Starts empty with each
// FakeIpmi and FakeCim.
class Journal {
public:
    static void Append(const std::string& entry);
    static std::vector<std::string> Take();
};

}  // namespace fakes

#endif
