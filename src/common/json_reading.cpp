// SPDX-License-Identifier: Apache-2.0
#include "common/json_reading.h"

#include <algorithm>
#include <boost/property_tree/json_parser.hpp>
#include <sstream>

namespace {

// How deep brackets and braces nest, those inside strings aside.
std::size_t NestingOf(const std::string& text) {
    std::size_t depth = 0;
    std::size_t deepest = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') {
                ++i;  // whatever is escaped does not end the string
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return deepest;
}

[[noreturn]] void Refuse(const std::string& why) {
    throw boost::property_tree::json_parser_error(why, "", 0);
}

}  // namespace

boost::property_tree::ptree ReadJson(const std::string& text) {
    if (text.size() > kMaxJsonBytes) {
        Refuse("more than " + std::to_string(kMaxJsonBytes) + " bytes");
    }
    if (NestingOf(text) > kMaxJsonDepth) {
        Refuse("more than " + std::to_string(kMaxJsonDepth) + " nested levels");
    }
    std::istringstream stream(text);
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(stream, tree);
    return tree;
}

const boost::property_tree::ptree* FindMember(const boost::property_tree::ptree& object,
                                              const std::string& name) {
    const auto member = object.find(name);
    return member == object.not_found() ? nullptr : &member->second;
}
