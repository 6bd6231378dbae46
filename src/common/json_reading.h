// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_COMMON_JSON_READING_H
#define VARNEX_COMMON_JSON_READING_H

#include <boost/property_tree/ptree.hpp>
#include <cstddef>
#include <string>

// What a BMC may make us read. The reader recurses once per level and keeps several times the
// text's size in memory: far beyond these bounds a hostile answer would end the host's process.
constexpr std::size_t kMaxJsonDepth = 512;
constexpr std::size_t kMaxJsonBytes = std::size_t{16} * 1024 * 1024;

// Reads `text` as JSON (RFC 8259). Throws boost::property_tree::json_parser_error when it is none,
// nests deeper than kMaxJsonDepth or is longer than kMaxJsonBytes.
boost::property_tree::ptree ReadJson(const std::string& text);

// The member called exactly `name`, a dot in it included; null where `object` has none.
const boost::property_tree::ptree* FindMember(const boost::property_tree::ptree& object,
                                              const std::string& name);

#endif
