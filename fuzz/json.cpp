// SPDX-License-Identifier: Apache-2.0
//
// Any bytes for the JSON reader: a tree, or the reader's own exception and no other.
#include "common/json_reading.h"

#include <boost/property_tree/json_parser.hpp>
#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const boost::property_tree::ptree tree =
            ReadJson(std::string(reinterpret_cast<const char*>(data), size));
        (void)FindMember(tree, "TaskState");
    } catch (const boost::property_tree::json_parser_error&) {
    }
    return 0;
}
