// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_JSON_H
#define KEMFFDC_REDFISH_JSON_H

#include <boost/json.hpp>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Kemffdc::Redfish {

// A BMC's answer as a JSON object. Nothing when it is not one, nests deeper than 512 levels or is
// longer than `maxBytes`.
std::optional<boost::json::object> ReadObject(const std::string& text,
                                              std::size_t maxBytes = std::size_t{1024} * 1024);

// A member's string or number as text, fit for display; empty where there is none.
std::string TextMember(const boost::json::object& object, const char* name);

// A member's string as the BMC sent it, any bytes; empty where there is none.
std::string RawMember(const boost::json::object& object, const char* name);

// The strings of a member that is a list, fit for display; nothing where there is no list.
std::optional<std::vector<std::string>> TextsMember(const boost::json::object& object,
                                                    const char* name);

// A member that is an object; null where there is none.
const boost::json::object* ObjectMember(const boost::json::object& object, const char* name);

// A path below /redfish/ on the same service, without anything that would bend it.
bool IsPlainPath(const std::string& path);

// Where a member leads that links to one resource, or to several ("@odata.id", DSP0266): plain
// paths. Others count as none.
std::string LinkMember(const boost::json::object& object, const char* name);
std::vector<std::string> LinksMember(const boost::json::object& object, const char* name);

// What the BMC says in an error answer (DMTF DSP0266, "Error responses"), fit for display. Empty
// where it says nothing readable.
std::string BmcMessage(const std::string& body);

}  // namespace Kemffdc::Redfish

#endif
