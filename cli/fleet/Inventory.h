// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_INVENTORY_H
#define KEMFFDC_FLEET_INVENTORY_H

#include <map>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/config/Members.h"
#include "cli/fleet/Faults.h"

namespace Kemffdc::Fleet {

// One BMC, as the list of them says.
struct Host {
    std::string name;     // of its own; of its folder in a run, and in every report
    std::string address;  // what is connected to: a name or an address, IPv6 without brackets
    std::vector<std::string> groups;
    std::string credential;  // its name in the file of credentials; empty: none
    std::map<std::string, Config::Value> settings;  // members of kemffdc.conf, with their lines
    int line = 0;                                   // of the inventory; 0: from --hosts
};

// A list of BMCs. Names and addresses are fit for a command line and for a folder's name.
struct Inventory {
    std::string path;                // empty: from --hosts
    std::string credentials;         // file that the inventory names; absolute, or empty
    std::vector<Host> hosts;         // in the order of the file
    bool tooLong = false;            // there are more, and a fault says so
    std::vector<std::string> notes;  // what an operator should know, whole sentences
};

// Reads a file of YAML, or of CSV where its name ends in .csv. Blocks on the disk alone.
//
// CSV: the first row names the columns: name, address, group, credential, and any member of
// kemffdc.conf (via, port, user, node, cipher_suite, mode, export.uri ...). A group's names are
// separated by blanks. Columns of another name are passed over, and told in `notes`.
//
// YAML: `defaults:` with members, `groups:` with a map for each group, which holds members and
// `hosts:`, and `hosts:` for BMCs that are in no group. Hosts are an expression (HostRange.h), a
// list of these, or a map from expressions to members. A BMC's own members count before those of
// its group, and these before the defaults. `credentials:` names the file of credentials.
//
// A name, and with it an address, can be a range of hosts. Paths begin with / or "~/", for which
// `home` stands; that of the credentials can be relative to the inventory's folder.
//
// All rows are checked: those with something wrong are left out of `inventory`, and told in
// `faults`. kLocalFile: the file cannot be read; kUsage: it is no YAML, "FILE:LINE: what".
Outcome ReadInventory(const std::string& path, const std::string& home,
                      const std::vector<Config::Member>& members, Inventory& inventory,
                      Faults& faults);

// The same for an expression on the command line.
void HostsOf(const std::string& expression, Inventory& inventory, Faults& faults);

}  // namespace Kemffdc::Fleet

#endif
