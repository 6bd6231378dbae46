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

}  // namespace Kemffdc

#endif
