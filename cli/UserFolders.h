// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_USERFOLDERS_H
#define KEMFFDC_USERFOLDERS_H

#include <string>

namespace Kemffdc {

// The home folder of this process's user: $HOME where it is absolute, else the one that the system
// knows; empty where there is none. Without a slash at its end.
std::string HomeFolder();

// A base folder of this user by the XDG Base Directory Specification 0.8: what the variable
// ("XDG_CONFIG_HOME") names where that is absolute, else that folder ("/.config") of the home
// folder; empty where there is no home.
std::string XdgFolder(const char* variable, const char* belowHome);

}  // namespace Kemffdc

#endif
