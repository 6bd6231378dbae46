// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_CONTENTRANGE_H
#define VARNEX_PLATFORM_SRC_CONTENTRANGE_H

#include <cstdint>
#include <optional>
#include <string>

// Which bytes of a file an answer holds (RFC 9110, section 14.4): those of "bytes 10-19/100".
struct ContentRange {
    std::uint64_t first;
    std::uint64_t last;
    std::uint64_t size;  // of the whole file
};

// Nothing where `text` is no such line, makes no sense, or leaves the size open.
std::optional<ContentRange> ReadContentRange(const std::string& text);

// The size of "bytes */100", which a server says that has none of the wanted bytes.
std::optional<std::uint64_t> ReadUnsatisfiedRange(const std::string& text);

#endif
