// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Meaning.h"

#include <algorithm>
#include <iterator>

namespace Kemffdc::Fleet {
namespace {

constexpr char kResume[] = "kemffdc fleet resume tries these hosts again.";

struct Row {
    const char* outcome;
    const char* title;
    const char* advice;
};

constexpr Row kMeanings[] = {
    {"checked", "can be used", ""},
    {"downloaded", "downloaded", ""},
    {"exported", "exported", "The BMC has sent its archive to the file store itself."},
    {"usage", "wrong settings", "Correct these hosts' rows in the inventory, or kemffdc.conf."},
    {"no-password", "no password", "Name a credential for these hosts in the inventory."},
    {"not-connected", "no connection",
     "Look at one of them alone: kemffdc check HOST --log-level 4."},
    {"unknown-host", "unknown name", "Correct the address in the inventory, or the name service."},
    {"unreachable", "no answer",
     "See whether the BMCs have power and network, and whether a firewall lies in between."},
    {"tls-failed", "no TLS",
     "Something answers on this port and offers no usable TLS: is it the BMC, and the right port?"},
    {"untrusted", "not trusted",
     "No password was sent. Compare the certificate or host key with the BMC's own; where it was "
     "replaced on purpose, run kemffdc check HOST --accept-new-certificate."},
    {"login-refused", "wrong password",
     "Correct user or password of these hosts before anything tries again: accounts lock after a "
     "few refusals."},
    {"not-permitted", "no permission",
     "Give the account the right to gather service data, or use another credential."},
    {"starting", "not ready yet", "The BMC is starting. kemffdc fleet resume tries again."},
    {"connection-lost", "connection lost", kResume},
    {"no-service", "no such service",
     "What answers is not the service that was asked for. Correct via or port in the inventory, or "
     "use via: auto."},
    {"bmc-fault", "fault of the BMC",
     "The BMC's service answers with errors. Restart the BMC if they last."},
    {"export-refused", "gathering refused",
     "The reason of each host says what the BMC objects to."},
    {"unsupported", "not offered by the BMC", "Try another channel (via), or update the firmware."},
    {"busy", "busy with another gathering", "Wait until that has ended. kemffdc fleet resume."},
    {"store-refused", "file store refused the archive",
     "Correct the login, path or free space of the file store."},
    {"task-failed", "gathering failed", "The reason of each host has the BMC's own words."},
    {"task-killed", "gathering killed by the BMC", kResume},
    {"task-lost", "gathering lost", "What became of it is not known. kemffdc fleet resume looks."},
    {"not-finished", "still gathering", "kemffdc fleet resume waits on and fetches what is ready."},
    {"deadline", "not done in time", "Give more time, or go on with kemffdc fleet resume."},
    {"download-failed", "not fetched",
     "Gathered, and not fetched. kemffdc fleet resume fetches it."},
    {"no-file-service", "file service silent",
     "See whether the BMC's file service is switched on and can be reached (SFTP, port 115)."},
    {"too-large", "too large", "Allow more with --max-size if the archives are to be had."},
    {"local-file", "trouble on this machine", "The reason says which file or folder it is."},
    {"disk-full", "no room on this machine", "Free room, or name another folder with --output."},
    {"out-of-memory", "no memory on this machine", "Work on fewer hosts at once with --gathering."},
    {"locked", "another run is at work on it", "Wait for that run. kemffdc fleet resume."},
    {"files-missing", "some files missing",
     "What came is kept; the record beside it tells the rest."},
    {"unreadable", "damaged archive",
     "What came is kept, and cannot be read to its end. Gather it again."},
    {"limited", "reached, but of no use", "The reason says what the BMC does not offer."},
    {"interrupted", "interrupted", "kemffdc fleet resume goes on where the run ended."},
    {"crashed", "worker crashed",
     "The worker of this host has died without a word; the others are untouched. kemffdc fleet "
     "resume tries again. Please report it."},
    {"hung", "worker hung", "The worker of this host did not end in time and was killed."},
    {"guarded", "held back by the lock-out guard",
     "Other hosts have refused this credential, so it was tried no further. Correct it, then "
     "kemffdc fleet resume."},
    {"not-tried", "not tried", "The run has ended before these. kemffdc fleet resume tries them."},
    {"not-ended", "not ended",
     "While the run works, wait. Otherwise kemffdc fleet resume goes on."},
};

}  // namespace

Meaning MeaningOf(const std::string& outcome) {
    const Row* const found =
        std::find_if(std::begin(kMeanings), std::end(kMeanings),
                     [&outcome](const Row& row) { return outcome == row.outcome; });
    if (found == std::end(kMeanings)) return {outcome, ""};
    return {found->title, found->advice};
}

}  // namespace Kemffdc::Fleet
