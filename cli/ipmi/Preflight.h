// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_IPMI_PREFLIGHT_H
#define KEMFFDC_IPMI_PREFLIGHT_H

#include <cstdint>
#include <string>
#include <vector>

#include "cli/Options.h"
#include "cli/report/Report.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc::Ipmi {

// What the data of a Get Device ID answer say (IPMI v2.0, section 20.1). False: they are too short.
bool ReadDeviceId(const std::vector<std::uint8_t>& data, BmcFacts& facts);

// Asks the BMC what it is, over a session of its own. What it does not tell stays empty. Returns
// why it did not answer; empty where it did.
std::string AskDeviceId(const Options& options, const Secret& password, BmcFacts& facts);

// The BMC's file service (SFTP, TCP port 115), before anything is gathered.
struct FileService {
    enum class State {
        kReady,
        kUntrusted,  // its host key is refused
        kNoLogin,    // it refuses the account
        kUnusable,   // cannot be reached, or is no SFTP server
    };
    State state = State::kReady;
    std::string reason;  // the platform's words and number; of kReady: empty
};

// Connects as the library will, has the host key judged and remembered, and logs in where the mode
// has its account already: that of this machine's own BMC, which is asked in band, and where that
// one fails the options'. In mode 2 the BMC hands its account out after it has gathered, and nobody
// logs in. `host` as the library will be given it. Takes at most as long as one listing of the
// platform's for each account (TRANSFER_CONNECT_TIME, TRANSFER_STALL_TIME).
FileService LookAtFileService(const std::string& host, const Options& options,
                              const Secret& password);

}  // namespace Kemffdc::Ipmi

#endif
