// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_IPMIMODULE_H
#define VARNEX_PLATFORM_SRC_IPMIMODULE_H

#include <string>

#include "../ipmi/module.h"

// The module that speaks IPMI, from the folder beside this library and from nowhere else; where
// this is a static library, from the folder that its build was configured to install the module in.
// Loaded once and for good; null, with the reason, where that fails: the next call tries it again.
const varnex_ipmi_module* LoadIpmiModule(std::string& why);

#endif
