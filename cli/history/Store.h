// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_STORE_H
#define KEMFFDC_HISTORY_STORE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/history/LiveMarks.h"

namespace Kemffdc::History {

class Database;

using Id = std::int64_t;  // from 1; 0: none

// Why the history cannot be read or written: a sentence for the operator.
class StoreError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What a BMC is. Empty where it does not say.
struct Bmc {
    std::string address;  // that the host's name stood for
    std::string serviceVersion;
    std::string vendor;
    std::string product;
    std::string model;
    std::string firmware;
    std::string serial;
    std::string uuid;
    std::string certificate;  // SHA-256, upper-case hexadecimal with colons
    std::string hostKey;      // as OpenSSH writes a fingerprint
};

// One run of the tool. Empty texts and zeros where something is not known or does not apply.
struct RunRow {
    Id id = 0;
    std::string command;  // "collect", "check", "resume"
    std::string toolVersion;
    Id continues = 0;  // the run whose task this one goes on with
    std::string channel;
    std::string host;  // as SameHost() spells it
    std::uint16_t port = 0;
    std::string user;
    std::string logKind;    // Redfish: "mini", "full"
    std::string exportUri;  // where the BMC was to send its archive
    std::string output;     // folder of this machine
    std::string begunAt;    // UTC, as the next
    std::string endedAt;    // empty: it lives, or has ended without a word

    int exitCode = -1;  // -1 until it has ended, as the next two
    std::string outcome;
    std::string reason;

    Bmc bmc;
    std::string task;       // the task's URI on the BMC
    std::string taskState;  // as the BMC last told it
    std::string bmcPath;    // where the archive lies on the BMC
    std::string operation;  // how the BMC gathers, where its channel knows several ways
    bool several = false;   // it was to bring archives of several tasks, one after the other

    Id fleet = 0;         // the fleet run that this one is an attempt of
    int fleetNumber = 0;  // of the host in it, from 1
};

struct StepRow {
    std::string name;
    std::string begunAt;  // UTC, as the next
    std::string endedAt;  // empty: not ended
    int code = 0;
    double seconds = 0;
    std::string detail;
};

// A file that is fetched, or was.
struct ArchiveRow {
    Id id = 0;
    Id run = 0;
    std::string name;            // that the BMC gave it
    std::string begunAt;         // UTC, as the next
    std::string endedAt;         // empty: on its way, or the run was killed
    std::string partial;         // the file that holds what has come, while there is one
    std::string validator;       // ETag or date of the BMC's file, for If-Range (RFC 9110)
    std::uint64_t expected = 0;  // bytes; 0: the BMC did not say

    std::string path;  // absolute; empty unless delivered, as the next two
    std::uint64_t size = 0;
    std::string sha256;         // lower-case hexadecimal
    std::optional<bool> whole;  // whether it unpacks to its end; none: not tried
    std::string detail;         // why it was not fetched, or does not unpack
    std::string removedAt;      // UTC; by the tool itself; empty: still to be there
};

// The history: runs, their steps and their archives in an SQLite database, history.db in the state
// folder, that several processes read and write side by side. Each operation is one transaction:
// what it wrote is there even when the process is killed right behind it. Secrets that were given
// to Varnex::HideInLog are masked in every text.
//
// Operations throw StoreError, and block for at most 15 s while others write. One thread
// at a time.
class Store {
public:
    // Opens the history; makes folder and file, for this user alone, where they are missing.
    // Older schemas are brought up to date, newer ones and other programs' files are refused.
    // `hurry`: once it is true, nothing blocks for longer than 0.2 s; it outlives the object.
    explicit Store(const std::string& stateFolder, const std::atomic<bool>* hurry = nullptr);
    ~Store();

    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    static bool Exists(const std::string& stateFolder);

    // A run begins: as long as this object lives, IsLive() is true for it. An attempt of a fleet
    // run is the latest one of its host from now on.
    Id BeginRun(const RunRow& run);
    void EndRun(Id run, int exitCode, const std::string& outcome, const std::string& reason);
    void SetWay(Id run, const std::string& channel, std::uint16_t port);
    void SetBmc(Id run, const Bmc& bmc);
    void SetTask(Id run, const std::string& uri, const std::string& state,
                 std::optional<int> percent = {});
    void SetOperation(Id run, const std::string& operation);
    void SetSeveral(Id run);
    void SetBmcPath(Id run, const std::string& path);

    void BeginStep(Id run, const std::string& name);
    // Ends the one that was begun last.
    void EndStep(Id run, int code, double seconds, const std::string& detail);

    Id BeginArchive(Id run, const std::string& name);
    void SetPartial(Id archive, const std::string& path, const std::string& validator,
                    std::uint64_t expected);
    // Of `archive` path, size, sha256, whole and detail count; there is no partial file any more.
    void Deliver(Id id, const ArchiveRow& archive);
    // The tool has removed what was delivered.
    void NoteRemoved(Id archive);
    // It does not come any more; a partial file stays known.
    void FailArchive(Id archive, const std::string& detail);

    std::optional<RunRow> FindRun(Id id) const;
    // The newest first, at most `limit`; of one host, address or serial number if it is not empty.
    std::vector<RunRow> Runs(const std::string& bmc, int limit) const;
    std::vector<StepRow> Steps(Id run) const;
    // When the run set out to ask its BMC to gather, whether the request has left or not: UTC;
    // empty: it did not get so far.
    std::string AskedAt(Id run) const;
    std::vector<ArchiveRow> Archives(Id run) const;
    // Those with this path that were not removed, the newest first.
    std::vector<ArchiveRow> ArchivesAt(const std::string& path) const;
    // Those that have not come whole, but in part.
    std::vector<ArchiveRow> Partials() const;
    // All that were delivered and not removed; of one host, address or serial number if it is not
    // empty.
    std::vector<ArchiveRow> Delivered(const std::string& bmc) const;

    // Whether the process that began this run still works on it.
    bool IsLive(Id run) const;

private:
    friend class FleetJournal;  // over the same connection

    const std::shared_ptr<Database> m_database;
    LiveMarks m_live;  // the runs that this object has begun
};

}  // namespace Kemffdc::History

#endif
