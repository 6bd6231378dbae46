// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_FAKEURI_H
#define VARNEX_TESTS_FAKEURI_H

#include <exception>

namespace fakes {

// A Uri that keeps its pieces. encodeURI(text) gives "encodeURI(text)", so that a test sees who
// called it.
class FakeUri {
public:
    // The next Uri made throws this.
    static void NextThrows(std::exception_ptr exception);
};

}  // namespace fakes

#endif
