// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_JSON_H
#define KEMFFDC_REPORT_JSON_H

#include <boost/json.hpp>
#include <string>

#include "cli/report/RunRecord.h"

namespace Kemffdc {

// The tool's JSON, as docs/json.md promises it: what --json prints, the last line of --events, and
// the file beside an archive.

// Of every object that the tool prints. Raised when a member goes, or comes to mean another thing.
constexpr int kJsonSchema = 1;

boost::json::object RunObject(const RunRecord& record);
// That of a run that has never begun; `command` may be empty.
boost::json::object FaultObject(const Outcome& outcome, const std::string& command);

// Parts of it, for other objects.
boost::json::object StepObject(const Step& step);
boost::json::object AttemptObject(const Attempt& attempt);
boost::json::value TaskValue(const std::optional<Task>& task);
boost::json::object FactsObject(const BmcFacts& facts);
boost::json::value PortOrNull(std::uint16_t port);

// `text` as a value; bytes that are no UTF-8 become U+FFFD.
boost::json::value TextValue(const std::string& text);
boost::json::value TextOrNull(const std::string& text);  // null for what is not known

// To the millisecond.
boost::json::value Seconds(double seconds);

// The opposite, for objects that the tool has written: a member's text, empty where there is none;
// its number, `otherwise` where there is none.
std::string TextIn(const boost::json::object& object, const char* member);
std::int64_t NumberIn(const boost::json::object& object, const char* member,
                      std::int64_t otherwise);

// A value on one line, without a line end. Numbers are plain decimals: no exponents.
std::string JsonText(const boost::json::value& value);

}  // namespace Kemffdc

#endif
