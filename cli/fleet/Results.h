// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_RESULTS_H
#define KEMFFDC_FLEET_RESULTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/history/HostState.h"
#include "cli/history/Store.h"

namespace Kemffdc::Fleet {

// A time is in seconds since the epoch, 0 where there is none. Texts are empty where something is
// not known or does not apply; they may hold anything, as a BMC or an operator has said it.

// One run that the results are of.
struct RunResult {
    std::string station;    // name of the machine that it ran on
    History::Id fleet = 0;  // its number in the history of that machine
    std::string command;    // "collect", "check"
    std::string toolVersion;
    std::string inventory;
    std::string shard;   // "2/10"
    std::string folder;  // absolute: where the archives of its hosts lie
    double started = 0;
    double ended = 0;   // 0: it works, or has ended without a word
    bool live = false;  // its conductor works
    int exitCode = -1;  // -1 until it has ended
};

// From when on a host was in a state.
struct StateChange {
    double at = 0;
    History::HostState state = History::HostState::kQueued;
};

// What became of one BMC.
struct HostResult {
    std::size_t run = 0;  // place of its run in Results::runs
    int number = 0;       // in the plan of that run, from 1
    std::string name;
    std::string host;  // name or address of the BMC
    std::string channel;
    std::string operation;  // of a channel that knows several
    std::string group;
    std::string credential;  // its name
    History::HostState state = History::HostState::kQueued;
    std::string outcome;  // never empty: "not-tried", "not-ended" where nobody wrote one
    int exitCode = -1;
    std::string reason;
    int attempts = 0;
    std::vector<StateChange> states;  // in order of time
    std::string task;
    std::string archive;    // absolute path: a file, or a folder of files
    std::string record;     // absolute path of the object beside it; empty: it is not there
    std::string exportUri;  // where the BMC has sent its archive to instead
    std::string removed;    // UTC, when `archive` was removed to make room
    std::uint64_t size = 0;
    std::string sha256;  // of a file
    History::Bmc bmc;

    bool Succeeded() const { return state == History::HostState::kDone; }
    bool HasArchive() const { return !archive.empty() && removed.empty(); }
    double Started() const;  // of its first attempt
    double Ended() const;    // 0 until it has
    double Seconds() const;  // that were spent on it; up to its last change where it has not ended
};

// What a fleet run has come to, or several runs together: all that its reports say. Each host of
// the inventory is in it.
struct Results {
    std::vector<RunResult> runs;
    std::vector<HostResult> hosts;   // in the order of the plan
    std::vector<std::string> notes;  // what a reader should know, whole sentences
    double written = 0;

    double Started() const;  // of the first run
    double Ended() const;    // of the last run; of what was written last where one has not ended
};

// How many ended how.
struct Totals {
    std::size_t hosts = 0;
    std::size_t done = 0;
    std::size_t failed = 0;
    std::size_t stopped = 0;
    std::size_t open = 0;     // not ended
    std::uint64_t bytes = 0;  // of the archives of those that are done
    std::size_t archives = 0;
    double median = 0;  // seconds of those that are done, as the next
    double slowest = 0;
};
Totals TotalsOf(const Results& results);

// Hosts that have not succeeded, for the same reason.
struct Failures {
    std::string outcome;
    std::vector<std::size_t> hosts;    // places in Results::hosts
    std::vector<std::string> reasons;  // the sentences, each once, the most frequent first
};
// The largest group first.
std::vector<Failures> FailuresOf(const Results& results);

// Names of those hosts, folded: "bmc[003,017-020]".
std::string FoldedNames(const Results& results, const std::vector<std::size_t>& hosts);

}  // namespace Kemffdc::Fleet

#endif
