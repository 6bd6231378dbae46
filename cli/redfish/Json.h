// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_JSON_H
#define KEMFFDC_REDFISH_JSON_H

#include <boost/json.hpp>
#include <optional>
#include <string>

namespace Kemffdc::Redfish {

// A BMC's answer as a JSON object. Nothing when it is not one, nests deeper than 512 levels or is
// longer than 1 MiB.
std::optional<boost::json::object> ReadObject(const std::string& text);

// A member's string or number as text, fit for display; empty where there is none.
std::string TextMember(const boost::json::object& object, const char* name);

// What the BMC says in an error answer (DMTF DSP0266, "Error responses"), fit for display. Empty
// where it says nothing readable.
std::string BmcMessage(const std::string& body);

}  // namespace Kemffdc::Redfish

#endif
