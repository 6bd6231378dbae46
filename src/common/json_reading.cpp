// SPDX-License-Identifier: Apache-2.0
#include "common/json_reading.h"

#include <algorithm>
#include <boost/property_tree/json_parser.hpp>
#include <sstream>

namespace {

struct Extent {
    std::size_t deepest = 0;  // levels of brackets and braces
    std::size_t values = 0;   // objects, arrays and what they hold; a member's name is none
};

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Of JSON. Of anything else something, without a fault.
Extent ExtentOf(const std::string& text) {
    Extent extent{0, 1};
    std::size_t depth = 0;
    bool inString = false;
    bool justOpened = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;  // whatever is escaped does not end the string
            if (c == '"') inString = false;
            continue;
        }
        if (IsBlank(c)) continue;
        const bool closes = c == ']' || c == '}';
        if ((justOpened && !closes) || c == ',') ++extent.values;
        justOpened = c == '[' || c == '{';
        if (justOpened) extent.deepest = std::max(extent.deepest, ++depth);
        if (closes && depth > 0) --depth;
        inString = c == '"';
    }
    return extent;
}

[[noreturn]] void Refuse(const std::string& why) {
    throw boost::property_tree::json_parser_error(why, "", 0);
}

}  // namespace

boost::property_tree::ptree ReadJson(const std::string& text) {
    if (text.size() > kMaxJsonBytes) {
        Refuse("more than " + std::to_string(kMaxJsonBytes) + " bytes");
    }
    const Extent extent = ExtentOf(text);
    if (extent.deepest > kMaxJsonDepth) {
        Refuse("more than " + std::to_string(kMaxJsonDepth) + " nested levels");
    }
    if (extent.values > kMaxJsonValues) {
        Refuse("more than " + std::to_string(kMaxJsonValues) + " values");
    }
    std::istringstream stream(text);
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(stream, tree);
    return tree;
}

std::string ReasonOf(const boost::property_tree::ptree_error& failure) {
    const auto* const parsing =
        dynamic_cast<const boost::property_tree::file_parser_error*>(&failure);
    if (parsing == nullptr || parsing->line() == 0) return failure.what();
    return "<unspecified file>(" + std::to_string(parsing->line()) + "): " + parsing->message();
}

const boost::property_tree::ptree* FindMember(const boost::property_tree::ptree& object,
                                              const std::string& name) {
    const auto member = object.find(name);
    return member == object.not_found() ? nullptr : &member->second;
}
