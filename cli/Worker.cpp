// SPDX-License-Identifier: Apache-2.0
#include "cli/Worker.h"

#include <malloc.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "cli/Channels.h"
#include "cli/CommandLine.h"
#include "cli/Run.h"
#include "cli/fleet/Assignment.h"
#include "cli/fleet/ConductorPipe.h"
#include "cli/fleet/Earlier.h"
#include "cli/history/FleetJournal.h"
#include "cli/history/StateFolder.h"
#include "cli/redfish/Options.h"
#include "cli/report/RunRecord.h"

namespace Kemffdc {
namespace {

// Nothing but what the conductor has settled counts: neither files nor variables.
Parsed Parse(std::vector<std::string> arguments) {
    const bool collects = !arguments.empty() && arguments.front() == "collect";
    const bool checks = !arguments.empty() && arguments.front() == "check";
    if (!collects && !checks) {
        return FaultOf(Failure(kUsage, "Assignment: the first argument is no collect or check."));
    }
    const bool told = std::find(arguments.begin(), arguments.end(), "--events") != arguments.end();
    if (!told) arguments.insert(arguments.begin() + 1, "--events");
    std::vector<const char*> words{"kemffdc"};
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    return ParseOptions(static_cast<int>(words.size()), words.data());
}

// What a history of before there were several operations does not name.
Redfish::Operation OperationOf(const History::RunRow& run) {
    const Redfish::Operation named = Redfish::OperationNamed(run.operation);
    return named == Redfish::Operation::kAuto ? Redfish::Operation::kOem : named;
}

// The BMC has a task of that run, or may have one: it is gone on with in the same way.
Outcome GoOnWith(const History::RunRow& run, Options& options) {
    options.command = Command::kResume;
    options.resumes = run.id;
    options.via = run.channel;
    options.port = run.port;
    Part<Redfish::ChannelOptions>(options).operation = OperationOf(run);
    const std::string fault = FindChannel(run.channel)->complete(options);
    return fault.empty() ? Outcome{} : Failure(kUsage, fault);
}

bool CanResume(const Channel* channel) { return channel != nullptr && channel->resume != nullptr; }

// Without a history there is nothing to find, and the run itself says so.
Outcome LookBack(Options& options) {
    const std::string folder = History::StateFolder(options.stateDir);
    if (options.command == Command::kCheck || folder.empty()) return {};
    if (!History::Store::Exists(folder)) return {};
    try {
        const Fleet::Earlier earlier =
            Fleet::LookBack(History::Store(folder), options.attempt->fleet, options.attempt->number,
                            [](const History::RunRow& run) {
                                return !run.several && CanResume(FindChannel(run.channel));
                            });
        options.attempt->archive = earlier.archive;
        options.attempt->size = earlier.size;
        options.attempt->sha256 = earlier.sha256;
        options.attempt->note = earlier.note;
        return earlier.run.id == 0 ? Outcome{} : GoOnWith(earlier.run, options);
    } catch (const History::StoreError& error) {
        // Whether the BMC gathers already is not known: it must not be made to do so twice.
        return Failure(kLocalFile, error.what());
    }
}

// There are hundreds of workers, and each of them mostly waits: one heap for all threads, and what
// is large goes back when it is freed. From 7.2 to 3.7 MiB of its own while it waits.
void SpareMemory() {
    constexpr int kLarge = 64 * 1024;
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, kLarge);
}

// What the run is to do, from the arguments and from what earlier attempts have left.
Outcome Prepare(const Fleet::Assignment& assignment, Options& options) {
    const Parsed parsed = Parse(assignment.arguments);
    if (!parsed.fault.Ok()) return parsed.fault;
    if (!parsed.options) return Failure(kUsage, "Assignment: there is nothing to do.");  // help
    options = *parsed.options;
    options.attempt.emplace();
    options.attempt->fleet = assignment.fleet;
    options.attempt->number = assignment.number;
    return LookBack(options);
}

// As far as it can be told without its options.
std::string StateFolderIn(const std::vector<std::string>& arguments) {
    const auto option = std::find(arguments.begin(), arguments.end(), "--state-dir");
    const bool given = option != arguments.end() && option + 1 != arguments.end();
    return History::StateFolder(given ? option[1] : "");
}

// An attempt that cannot begin has ended for its host, too.
Outcome EndHost(const Fleet::Assignment& assignment, const Outcome& outcome) {
    const std::string folder = StateFolderIn(assignment.arguments);
    try {
        if (folder.empty() || !History::Store::Exists(folder)) return outcome;
        History::FleetJournal(folder).EndHost(assignment.fleet, assignment.number,
                                              History::HostState::kFailed, outcome.code,
                                              OutcomeName(outcome), outcome.reason);
    } catch (const History::StoreError&) {
        // The conductor hears of it all the same.
    }
    return outcome;
}

int End(const Parsed& parsed) {
    std::cout << parsed.out << std::flush;
    return parsed.exitCode;
}

}  // namespace

int RunWorker() {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    SpareMemory();
    Fleet::Assignment assignment;
    Outcome outcome = Fleet::ReadAssignment(STDIN_FILENO, assignment);
    if (!outcome.Ok()) return End(FaultOf(outcome));
    // The kernel tells of a death from the call above on; of an earlier one it has told nobody.
    const bool orphaned = assignment.conductor != 0 && getppid() != assignment.conductor;
    if (orphaned) return kInterrupted;
    Options options;
    outcome = Prepare(assignment, options);
    if (!outcome.Ok()) return End(FaultOf(EndHost(assignment, outcome)));

    Fleet::ConductorPipe conductor(STDIN_FILENO);
    std::ostream nobody(nullptr);
    GivenPasswords passwords{std::move(assignment.password), std::move(assignment.exportPassword)};
    return RunAttempt(options, std::move(passwords), assignment.gate ? &conductor : nullptr,
                      std::cout, nobody);
}

}  // namespace Kemffdc
