// SPDX-License-Identifier: Apache-2.0
//
// Any bytes for the JSON reader: a tree within the bounds, or the reader's own exception and no
// other. A short input that begins with "R" is an array of what follows, 160 KiB of it.
#include "common/json_reading.h"

#include <boost/property_tree/json_parser.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using Json = boost::property_tree::ptree;

std::string Repeated(const std::string& piece) {
    constexpr std::size_t kEnough = std::size_t{160} * 1024;  // more values than are taken
    std::string text = "[" + piece;
    while (text.size() < kEnough) text.append(",").append(piece);
    return text + "]";
}

std::size_t ValuesOf(const Json& json) {
    std::size_t values = 1;
    for (const auto& member : json) values += ValuesOf(member.second);
    return values;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    if (size > 0 && size < 32 && text[0] == 'R') text = Repeated(text.substr(1));
    try {
        const Json tree = ReadJson(text);
        (void)FindMember(tree, "TaskState");
        if (ValuesOf(tree) > kMaxJsonValues) std::abort();
    } catch (const boost::property_tree::json_parser_error&) {
    }
    return 0;
}
