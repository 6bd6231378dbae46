// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_UTC_H
#define KEMFFDC_UTC_H

#include <ctime>
#include <string>

namespace Kemffdc {

// The time of this machine's clock in UTC, as records, history and JSON write it:
// "2026-01-31T23:59:58Z" (RFC 3339).
std::string UtcNow();
std::string UtcText(std::time_t time);

// The opposite; 0 where `text` is no such time.
std::time_t ReadUtc(const std::string& text);

// The same as names of files have it: "20260131T235958Z" (ISO 8601, basic format).
std::string UtcForNames(std::time_t time);

}  // namespace Kemffdc

#endif
