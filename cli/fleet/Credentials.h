// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_CREDENTIALS_H
#define KEMFFDC_FLEET_CREDENTIALS_H

#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/config/Members.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc::Fleet {

// Accounts by name: members of kemffdc.conf that log in, on the BMC and on the file store. They
// name the places where passwords are, and hold none.
struct Credentials {
    std::string path;  // empty: there are none
    std::map<std::string, Config::Values> named;
};

// Reads a file of YAML: names, each with some of `members`.
//
//   lab:
//     user: service
//     password_command: [pass, show, bmc/lab]
//     export:
//       password_file: ~/.store-password
//
// kLocalFile: it is not there, cannot be read, or is not this user's alone. The rights are those
// of the file that was opened; a link to it may belong to anybody. kUsage: something is wrong in
// it, "FILE:LINE: what".
Outcome ReadCredentials(const std::string& path, const std::string& home,
                        const std::vector<Config::Member>& members, Credentials& credentials);

// The passwords of a run on many BMCs: each is read when the first one needs it, and never again,
// also where that has failed. Belongs to one thread.
class Passwords {
public:
    // Blocks as ReadSecret() does, for a file or for a command's time, the first time. `secret`
    // lives as long as this object.
    Outcome Of(const SecretSource& source, const Secret*& secret);

private:
    // Variable, file and command.
    using Key = std::tuple<std::string, std::string, std::vector<std::string>>;

    std::map<Key, std::pair<Outcome, Secret>> m_read;
};

}  // namespace Kemffdc::Fleet

#endif
