// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_TREE_MASKING_H
#define KEMFFDC_REDFISH_TREE_MASKING_H

#include <boost/json/fwd.hpp>
#include <cstdint>
#include <string>

namespace Kemffdc::Redfish::Tree {

// Whether the value of a member, or of a setting of that name, is a secret: the name holds one of
// the words that docs/redfish-operations.md lists, in any case and whatever stands between them
// ("SNMP.1.AgentCommunity", "private_key").
bool IsSecretName(const std::string& name);

// Puts asterisks in the place of secrets, and returns how many there were: texts of members with
// such a name, and all texts below them; the value beside a name of a setting (Name and Value, and
// the like); passwords in addresses; private keys; and what the tool itself has as a secret
// (HideInLog). Members with "@" in their names, numbers, true, false and null stay.
std::uint64_t MaskSecrets(boost::json::value& resource);

}  // namespace Kemffdc::Redfish::Tree

#endif
