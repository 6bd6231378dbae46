// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_COMMON_JSON_READING_H
#define VARNEX_COMMON_JSON_READING_H

#include <boost/property_tree/exceptions.hpp>
#include <boost/property_tree/ptree.hpp>
#include <cstddef>
#include <string>

// What a BMC may make us read. The reader recurses once per level and takes some 300 bytes for the
// shortest value: far beyond these bounds a hostile answer would end the host's process.
constexpr std::size_t kMaxJsonDepth = 512;
constexpr std::size_t kMaxJsonBytes = std::size_t{16} * 1024 * 1024;
constexpr std::size_t kMaxJsonValues = std::size_t{64} * 1024;

// Reads `text` as JSON (RFC 8259). Throws boost::property_tree::json_parser_error when it is none,
// and when it is beyond a bound: then the text ends with "more than N nested levels", "more than N
// bytes" or "more than N values".
boost::property_tree::ptree ReadJson(const std::string& text);

// What the reader says of a text that is none, with the place where it stopped: its what(), but for
// numbers, which there follow the host's global locale.
std::string ReasonOf(const boost::property_tree::ptree_error& failure);

// The member called exactly `name`, a dot in it included; null where `object` has none.
const boost::property_tree::ptree* FindMember(const boost::property_tree::ptree& object,
                                              const std::string& name);

#endif
