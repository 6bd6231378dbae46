// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_CAPACITY_H
#define KEMFFDC_FLEET_CAPACITY_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace Kemffdc::Fleet {

// What this machine has for the workers of a fleet run.
struct Capacity {
    static constexpr std::uint64_t kUnlimited = std::numeric_limits<std::uint64_t>::max();

    std::uint64_t files = kUnlimited;      // that this process may have open
    std::uint64_t processes = kUnlimited;  // that may still be started, threads among them
    std::uint64_t memory = kUnlimited;     // bytes that are free or can be made free
};

// As it is now. Raises this process's limit of open files as far as it may; looks at the limits of
// the user (setrlimit(2)) and of the control groups (version 2) that this process is in.
Capacity MeasureCapacity();

// Why so many hosts cannot be worked on at once, and what to do about it; empty: they can.
std::string CapacityFault(const Capacity& capacity, std::size_t hosts, std::size_t gathering,
                          std::size_t transfers);

}  // namespace Kemffdc::Fleet

#endif
