// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_MEANING_H
#define KEMFFDC_FLEET_MEANING_H

#include <string>

namespace Kemffdc::Fleet {

// What an outcome of a host means to an operator who has many of them.
struct Meaning {
    std::string title;   // behind a count: "41 wrong password"
    std::string advice;  // what to do, whole sentences; empty: nothing
};

// Of an outcome as docs/json.md lists them, or of a fleet's own: "crashed", "hung", "guarded",
// "not-tried", "not-ended". One that is not known has itself as its title.
Meaning MeaningOf(const std::string& outcome);

}  // namespace Kemffdc::Fleet

#endif
