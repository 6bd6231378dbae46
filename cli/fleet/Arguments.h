// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_ARGUMENTS_H
#define KEMFFDC_FLEET_ARGUMENTS_H

#include <chrono>
#include <string>
#include <vector>

namespace Kemffdc::Fleet {

// What a worker is started with, as on a command line: {"collect", "10.0.0.1", "--via=redfish",
// ...}. The journal keeps it as a JSON array.
using Arguments = std::vector<std::string>;

std::string ToJson(const Arguments& arguments);
Arguments FromJson(const std::string& json);  // empty where it is no such array

// What stands behind "--option="; empty where it is not there.
std::string ValueOf(const Arguments& arguments, const std::string& option);

// How long a run with these arguments may take, by its own clock (--deadline). 0: for ever.
std::chrono::milliseconds PatienceOf(const Arguments& arguments);

}  // namespace Kemffdc::Fleet

#endif
