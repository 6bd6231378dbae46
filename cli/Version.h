// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_VERSION_H
#define KEMFFDC_VERSION_H

#include <string>

namespace Kemffdc {

// What `kemffdc --version` says, several lines: what this program is, and the libraries that run in
// this process. Loads the module for IPMI. `builtFrom`: "commit 0123456789ab".
std::string VersionText(const std::string& builtFrom);

}  // namespace Kemffdc

#endif
