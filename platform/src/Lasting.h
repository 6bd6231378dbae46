// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_LASTING_H
#define VARNEX_PLATFORM_SRC_LASTING_H

// A value that is never destroyed, without an allocation that may fail: for what outlives
// everything that points to it.
template <typename T>
union Lasting {
    Lasting() : value() {}
    ~Lasting() {}  // NOLINT(modernize-use-equals-default): that one would be deleted
    T value;
};

#endif
