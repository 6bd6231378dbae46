// SPDX-License-Identifier: Apache-2.0
#include "ContentRange.h"

#include <charconv>
#include <regex>

namespace {

std::optional<std::uint64_t> Number(const std::ssub_match& digits) {
    const std::string text = digits.str();
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    (void)end;
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

// Long ones are none: the expressions below take stack for each byte.
bool Matches(const std::string& text, std::smatch& found, const char* expression) {
    constexpr std::size_t kLongest = 80;
    return text.size() <= kLongest &&
           std::regex_match(text, found, std::regex(expression, std::regex::icase));
}

}  // namespace

std::optional<ContentRange> ReadContentRange(const std::string& text) {
    std::smatch found;
    if (!Matches(text, found, "bytes +([0-9]+)-([0-9]+)/([0-9]+)")) return std::nullopt;
    const auto first = Number(found[1]);
    const auto last = Number(found[2]);
    const auto size = Number(found[3]);
    if (!first || !last || !size || *first > *last || *last >= *size) return std::nullopt;
    return ContentRange{*first, *last, *size};
}

std::optional<std::uint64_t> ReadUnsatisfiedRange(const std::string& text) {
    std::smatch found;
    if (!Matches(text, found, "bytes +\\*/([0-9]+)")) return std::nullopt;
    return Number(found[1]);
}
