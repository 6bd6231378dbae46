// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_GLOBALCONFIG_H
#define VARNEX_PLATFORM_GLOBALCONFIG_H

#include <string>

#pragma GCC visibility push(default)

#ifndef VARNEX_PLATFORM_GLOBAL
inline namespace varnex_platform {
#endif

// The integer that the host tool set's configuration holds for `key`, or `defaultValue` where it
// holds none or something that is no 32-bit integer. Never throws; any thread, any time. The
// library asks for each key once per process:
//
//   REDFISH_STARTUP_WAIT_TIME   180   seconds for which requests are repeated while a BMC answers
//                                     503 because it is still starting; 0 or less: no repetition
//   REST_ACTION_TIMEOUT         0     seconds for one REST request; 0: the library's own 60;
//                                     negative: no time limit, but no stall of over 60 s either
//
// Our implementation looks into the environment (VARNEX_<key>), then the INI file that
// VARNEX_CONFIG names, then /etc/varnex/global.ini. The keys stand outside any section.
int GetGlobalConfigValue(const std::string& key, int defaultValue);

#ifndef VARNEX_PLATFORM_GLOBAL
}  // namespace varnex_platform
#endif

#pragma GCC visibility pop

#endif
