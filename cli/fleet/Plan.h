// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_PLAN_H
#define KEMFFDC_FLEET_PLAN_H

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/config/Members.h"
#include "cli/fleet/Options.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc::Fleet {

// What an inventory and its credentials say of one BMC, by the names of kemffdc.conf.
using HostSays = std::map<std::string, Said>;

// The options of one BMC, settled.
struct SettledHost {
    Options options;
    std::vector<HeldSetting> held;       // all that a run on it has; for `fleet hosts` alone
    bool searches = false;               // which channel it is, the run is to find out
    std::string bmc;                     // one name for each BMC, whatever way leads to it
    std::vector<std::string> arguments;  // of a worker
};

// How the options of one BMC become settled: who parses the command line knows all commands and
// channels, and hands this down.
struct HostSettling {
    std::string home;                               // what "~" stands for
    std::vector<Config::Member> members;            // what an inventory may say of a BMC
    std::vector<Config::Member> credentialMembers;  // what a credential may
    // What the command line says of all BMCs, by the names of kemffdc.conf, each with the option.
    std::map<std::string, std::string> line;
    // As Settle() does for one BMC. The reason of a failure does not name the row.
    std::function<Outcome(const std::string& address, const HostSays& says, SettledHost& settled)>
        settle;
};

// One BMC of a run.
struct PlannedHost {
    std::string name;                 // unique in the run
    std::string host;                 // what is connected to: a DNS name or an address
    std::string channel;              // as --via names it
    bool searches = false;            // as in SettledHost
    std::vector<std::string> groups;  // of the inventory
    std::string credential;           // its name; empty: none
    std::string place;                // "rack.csv:17"; empty: from the command line
    // Equal where user and password come from the same place. Not for display: it may hold words
    // of a password's command.
    std::string login;
    // What a worker is started with: command, host, and every option that somebody has set but
    // --output, the passwords' and those of a single run. Understood without files and environment.
    std::vector<std::string> arguments;
    // To be read by Passwords; none: it needs none.
    std::optional<SecretSource> password;
    std::optional<SecretSource> exportPassword;
    std::vector<HeldSetting> held;  // as in SettledHost
};

// The BMCs of a run.
struct Plan {
    std::string inventory;           // path, as it was given; empty: from the command line
    std::string credentials;         // path; empty: there are none
    std::vector<PlannedHost> hosts;  // those that were chosen, in the order of the inventory
    std::size_t all = 0;             // BMCs of the inventory
    std::vector<std::string> notes;  // what an operator should know, whole sentences
};

// Reads the inventory that the options name, and its credentials, settles each BMC, and chooses.
// Connects to nothing and reads no password. Blocks on the disk.
//
// Every BMC is checked, also those that are not chosen. What is wrong is told line by line,
// "rack.csv:17: via: ...", as kUsage: a value, a name or a BMC that stands there twice, a
// credential that is not there, options that do not fit each other. kUsage too where nothing is
// chosen. kLocalFile: a file cannot be read, or the credentials can be read by others.
Outcome MakePlan(const Options& options, Plan& plan);

// Which of `of` shares a name falls into, from 1: by the first eight bytes of its SHA-256, the
// first one counting most, modulo `of`. Depends on nothing else. Never change it: the shares of a
// run that is resumed elsewhere, and those of last night's archives, would be others.
int ShardOf(const std::string& name, int of);

}  // namespace Kemffdc::Fleet

#endif
