// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_RECORDTABLE_H
#define KEMFFDC_RECORDTABLE_H

#include <cstddef>
#include <string>

#include "LogSink.h"

namespace Kemffdc {

// A record of the library matches when level and source are these and the text begins and ends
// like this. What lies between (a URL, a body) is the record's own.
struct RecordPattern {
    int level;
    const char* source;
    const char* begin;
    const char* end;
};

bool Matches(const RecordPattern& pattern, const Varnex::LogRecord& record);

// What of `record` lies between `pattern`'s begin and end.
std::string Between(const RecordPattern& pattern, const Varnex::LogRecord& record);

// The decimal number behind the first `label` in `text`, `missing` where there is none.
int NumberBehind(const std::string& text, const std::string& label, int missing);

// The rest of `text` behind the first `label`, empty where there is none.
std::string RestBehind(const std::string& text, const std::string& label);

}  // namespace Kemffdc

#endif
