// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_FOLDERNAMES_H
#define KEMFFDC_FLEET_FOLDERNAMES_H

#include <string>
#include <vector>

namespace Kemffdc::Fleet {

// The names of the folders of hosts in the folder of a run, one for each name in its order: safe
// in a path and in a shell, at most 100 bytes, different from each other also where capitals do not
// count, and none that a file of the run itself has.
std::vector<std::string> FolderNames(const std::vector<std::string>& hosts);

}  // namespace Kemffdc::Fleet

#endif
