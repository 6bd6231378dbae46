// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_FAKEMEMORY_H
#define VARNEX_TESTS_FAKEMEMORY_H

namespace fakes {

// Memory that runs out: while it lives, every `new (std::nothrow)` answers null. Other allocations
// go on.
class FakeMemory {
public:
    FakeMemory();
    ~FakeMemory();
    FakeMemory(const FakeMemory&) = delete;
    FakeMemory& operator=(const FakeMemory&) = delete;

    // Lets this many allocations pass first.
    void AllowFirst(int count);
};

}  // namespace fakes

#endif
