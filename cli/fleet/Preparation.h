// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_PREPARATION_H
#define KEMFFDC_FLEET_PREPARATION_H

#include <optional>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/Options.h"
#include "cli/fleet/Plan.h"
#include "cli/fleet/RunFolder.h"
#include "cli/fleet/RunSettings.h"
#include "cli/history/FleetJournal.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc::Fleet {

// What is known of a host beside its row: where its passwords come from. None: it needs none.
struct HostLogin {
    std::string who;  // equal where user and password are the same ones
    std::optional<SecretSource> password;
    std::optional<SecretSource> exportPassword;
};

// A fleet run before its first worker.
struct Preparation {
    History::FleetRunRow run;  // not in the journal yet where its number is 0
    std::vector<History::FleetHostRow> hosts;
    std::vector<HostLogin> logins;  // one for each host
    RunSettings settings;
    RunFolder folder;
};

// A new run as planned; `command` is "collect" or "check". Leaves the disk alone.
Preparation PrepareNew(const Options& options, const std::string& command, const Plan& plan);

// One of the journal, to go on with: passwords come from the credentials file that its row names,
// or from where the options say. Fails as ReadCredentials() does, and with kUsage where a
// credential is not there any more.
Outcome PrepareAgain(const Options& options, const History::FleetRunRow& run,
                     const std::vector<History::FleetHostRow>& hosts, Preparation& preparation);

// Makes the folder of a new run in `output`, or takes that of an earlier one, with a folder for
// each host whose archive is downloaded. kLocalFile where that cannot be done.
Outcome OpenFolders(const std::string& output, Preparation& preparation);

}  // namespace Kemffdc::Fleet

#endif
