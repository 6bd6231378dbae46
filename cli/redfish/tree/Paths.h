// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_TREE_PATHS_H
#define KEMFFDC_REDFISH_TREE_PATHS_H

#include <string>

#include "cli/http/Endpoint.h"

namespace Kemffdc::Redfish::Tree {

// Where a link of a resource leads.
struct Target {
    std::string path;   // to be asked for; empty: the link is not followed
    std::string fault;  // why not, as it follows the link
};

// The service that a tree is read of, by the names that its links may have for it.
struct Service {
    Endpoint endpoint;
    std::string address;  // numeric; empty where it is not known
};

// A link as a BMC gives it ("@odata.id", DSP0266): the fragment and a slash at the end are none of
// the resource's name. Followed is what lies below /redfish/ on the same service, as a path or as a
// whole address. `query`: the link of a next page, which may have one.
Target TargetOf(const std::string& link, const Service& service, bool query = false);

// Whether a path lies where nothing is read: accounts, roles, sessions, certificates, keys, license
// texts, subscriptions to events, whose targets have passwords; and registries and schemas, which
// are the same everywhere. Decided by any one piece of the path.
bool IsLeftOut(const std::string& path);

// The same of a resource by its "@odata.type", wherever it lies.
bool IsLeftOutType(const std::string& type);

// The name of a resource's file: the path without its first slash, "/redfish/v1/Chassis/1" as
// "redfish/v1/Chassis/1/index.json"; of a further page of it (2, 3 ...) "page-00002.json". Bytes
// other than letters, digits and "_+,=@()~.-" become %XX, and so does the dot of a piece that ends
// like a file's name or is "." or "..": no two resources share a name, and none leads out.
std::string FileName(const std::string& path, int page = 1);

}  // namespace Kemffdc::Redfish::Tree

#endif
