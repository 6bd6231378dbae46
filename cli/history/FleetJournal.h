// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_FLEETJOURNAL_H
#define KEMFFDC_HISTORY_FLEETJOURNAL_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/history/HostState.h"
#include "cli/history/LiveMarks.h"
#include "cli/history/Store.h"

namespace Kemffdc::History {

// One fleet run: many BMCs by one command. Empty texts where something does not apply.
struct FleetRunRow {
    Id id = 0;
    std::string command;  // "collect", "check"
    std::string toolVersion;
    std::string inventory;    // as it was given; empty: --hosts alone
    std::string shard;        // "2/10"; empty: all
    std::string folder;       // absolute: RUN
    std::string credentials;  // absolute path of the credentials file; empty: none
    std::string settings;     // JSON object: limits and the rest that `fleet resume` works with
    std::string begunAt;      // UTC, as the next
    std::string endedAt;      // empty: it lives, or has ended without a word
    int exitCode = -1;        // -1 until it has ended
};

// One host of a fleet run: what is planned for it, and what has become of it.
struct FleetHostRow {
    Id fleet = 0;
    int number = 0;          // from 1, in the order of the plan
    std::string name;        // unique in the run; names its folder
    std::string host;        // address or DNS name of the BMC
    std::string channel;     // empty until one has been found
    std::string group;       // of the inventory
    std::string credential;  // name; empty: the run's own password
    std::string arguments;   // JSON array: what a worker is started with; no secrets

    HostState state = HostState::kQueued;
    double changedAt = 0;  // of the state, seconds since 1970; 0: never
    int attempts = 0;      // workers that have begun their run
    Id run = 0;            // in runs, of the latest attempt; 0: none
    int exitCode = -1;     // of the latest attempt that has ended, as the next two
    std::string outcome;   // "downloaded", "login-refused" ... (docs/json.md)
    std::string reason;    // a sentence

    std::string task;       // of the latest attempt, as the next two; the task's URI on the BMC
    std::string taskState;  // as the BMC last told it, and the next
    std::optional<int> taskPercent;
    std::string operation;  // how the BMC gathers, where its channel knows several ways
    std::string exportUri;  // where the BMC has sent its archive to
    std::string archive;    // absolute path of the file, or of the folder of files
    std::uint64_t size = 0;
    std::string sha256;  // empty for a folder
    Bmc bmc;
};

// One line of the timeline.
struct FleetStateRow {
    int number = 0;  // of the host
    double at = 0;   // seconds since 1970
    HostState state = HostState::kQueued;
    std::string detail;  // of kGathering the task; a sentence of the ends and of kPausing
};

// A file that an attempt of a host has brought.
struct FleetArchiveRow {
    Id fleet = 0;
    int number = 0;    // of the host
    std::string name;  // of the host, as the next
    std::string host;
    int exitCode = -1;  // of the attempt: not 0 where files were missing
    ArchiveRow file;
};

// The journal of fleet runs, in the database of the history: written by the conductor and by its
// workers as things happen; status, report and resume read nothing else.
//
// As Store in all else: one transaction each, StoreError, patience, secrets. 2,000 processes may
// write at the same time.
class FleetJournal {
public:
    explicit FleetJournal(const std::string& stateFolder, const std::atomic<bool>* hurry = nullptr);
    explicit FleetJournal(const Store& store);  // over its connection

    // A fleet run begins, its hosts queued, numbered from 1 as they stand. As long as this object
    // lives, IsLive() is true for it.
    Id BeginFleet(const FleetRunRow& run, const std::vector<FleetHostRow>& plan);
    // It goes on. False: its conductor lives, and nothing is changed.
    bool ResumeFleet(Id fleet);
    void EndFleet(Id fleet, int exitCode);

    // Adds a line to the timeline. The same state as before with the same detail adds none.
    void SetState(Id fleet, int number, HostState state, const std::string& detail = "");
    // What has come; stays known whatever becomes of later attempts.
    void SetArchive(Id fleet, int number, const std::string& path, std::uint64_t size,
                    const std::string& sha256);
    void SetExported(Id fleet, int number, const std::string& exportUri);
    // How an attempt has ended: kDone, kFailed, kStopped, or kPausing where another follows. By the
    // worker with what its run says (it never writes kPausing: whether another follows is the
    // conductor's to say, afterwards); by the conductor for a worker that has ended without a word,
    // and for hosts that it stops.
    void EndHost(Id fleet, int number, HostState state, int exitCode, const std::string& outcome,
                 const std::string& reason);

    std::optional<FleetRunRow> Find(Id fleet) const;
    std::optional<FleetRunRow> Latest() const;
    std::vector<FleetRunRow> Fleets(int limit) const;  // the newest first
    std::vector<FleetHostRow> Hosts(Id fleet) const;   // in the order of the plan
    std::optional<FleetHostRow> Host(Id fleet, int number) const;
    std::vector<FleetStateRow> States(Id fleet) const;  // the timeline, the oldest first
    // The attempts of a host: their runs, the newest first.
    std::vector<RunRow> Attempts(Id fleet, int number) const;

    // What hosts of one fleet run have brought, or of all (0): the newest first, removed ones too.
    std::vector<FleetArchiveRow> Archives(Id fleet = 0) const;

    // Whether a conductor works on it.
    bool IsLive(Id fleet) const;

private:
    const std::shared_ptr<Database> m_database;
    LiveMarks m_live;  // the fleet runs that this object has begun or resumed
};

}  // namespace Kemffdc::History

#endif
