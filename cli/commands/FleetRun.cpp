// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/FleetRun.h"

#include <unistd.h>

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <csignal>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "LogSink.h"
#include "cli/commands/FleetRecorded.h"
#include "cli/fleet/Arguments.h"
#include "cli/fleet/Capacity.h"
#include "cli/fleet/Conductor.h"
#include "cli/fleet/Credentials.h"
#include "cli/fleet/Preparation.h"
#include "cli/fleet/Reports.h"
#include "cli/fleet/SceneJson.h"
#include "cli/fleet/View.h"
#include "cli/history/StateFolder.h"
#include "cli/history/Store.h"
#include "cli/report/Json.h"
#include "cli/report/Words.h"
#include "cli/terminal/Interrupt.h"
#include "cli/terminal/Program.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc {
namespace {

namespace json = boost::json;

using Fleet::Preparation;
using History::FleetHostRow;
using History::FleetJournal;
using History::FleetRunRow;
using History::HostState;

constexpr char kThisProgram[] = "/proc/self/exe";
constexpr char kWorker[] = "fleet-worker";

// While it lives a signal ends the process, with the terminal's echo on: for prompts and password
// commands. Afterwards signals are as they were.
class EndsAtSignals {
public:
    explicit EndsAtSignals(std::ostream& err) {
        pthread_sigmask(SIG_SETMASK, nullptr, &m_before);
        m_interrupt = std::make_unique<Interrupt>(
            std::chrono::seconds(0), Interrupt::Ends{[this, &err] { Tell(err); }, CleanUp});
    }
    ~EndsAtSignals() {
        m_interrupt.reset();
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    EndsAtSignals(const EndsAtSignals&) = delete;
    EndsAtSignals& operator=(const EndsAtSignals&) = delete;

private:
    void Tell(std::ostream& err) {
        WriteReason(Failure(kInterrupted, "Interrupted. No BMC was asked anything."), err);
        m_interrupt->Told();
    }
    static void CleanUp() {
        RestoreTerminal();
        KillProgram();
    }

    sigset_t m_before{};
    std::unique_ptr<Interrupt> m_interrupt;
};

// A run that came to nothing before it began, for --json and --events.
json::object NothingDone(const std::string& command, const Outcome& outcome) {
    Fleet::Scene scene;
    scene.command = command;
    json::object object = Fleet::SceneObject(scene, outcome.code);
    object["fleet"] = nullptr;
    object["reason"] = TextOrNull(outcome.reason);
    return object;
}

int Refuse(const Outcome& outcome, const std::string& command, const Options& options,
           std::ostream& out, std::ostream& err) {
    WriteReason(outcome, err);
    if (options.json || options.events) out << JsonText(NothingDone(command, outcome)) << "\n";
    return outcome.code;
}

// One connection to the database of the history.
struct Books {
    explicit Books(const std::string& folder) : store(folder), journal(store) {}

    History::Store store;
    FleetJournal journal;
};

Outcome OpenBooks(const Options& options, std::unique_ptr<Books>& books) {
    const std::string folder = History::StateFolder(options.stateDir);
    if (folder.empty()) {
        return Failure(kLocalFile,
                       "There is no folder for the journal of the run: name one with --state-dir.");
    }
    try {
        books = std::make_unique<Books>(folder);
        return {};
    } catch (const History::StoreError& error) {
        return Failure(kLocalFile, error.what());
    }
}

bool IsDone(const FleetHostRow& host) { return host.state == HostState::kDone; }

Outcome CheckCapacity(const Preparation& run) {
    const Fleet::Scheduler::Pace pace = PaceOf(run.settings.pace);
    const auto hosts = std::count_if(run.hosts.begin(), run.hosts.end(),
                                     [](const FleetHostRow& host) { return !IsDone(host); });
    const std::string fault =
        CapacityFault(Fleet::MeasureCapacity(), static_cast<std::size_t>(hosts), pace.gathering,
                      run.run.command == "collect" ? pace.transfers : 0);
    return fault.empty() ? Outcome() : Failure(kLocalFile, fault);
}

// All at once, before the first worker: nobody is asked for a password in the middle of a run.
Outcome ReadPasswords(const Preparation& run, Fleet::Passwords& passwords, std::ostream& err) {
    const EndsAtSignals ends(err);
    for (std::size_t host = 0; host < run.hosts.size(); ++host) {
        if (IsDone(run.hosts[host])) continue;
        for (const auto* source : {&run.logins[host].password, &run.logins[host].exportPassword}) {
            if (!*source) continue;
            const Secret* secret = nullptr;
            Outcome outcome = passwords.Of(**source, secret);
            if (!outcome.Ok()) return outcome;
        }
    }
    return {};
}

// Not before the plan stands in the journal: a password that is a word of it, say the name of its
// user, would be masked there.
void HideSecrets(const Preparation& run, Fleet::Passwords& passwords) {
    for (const Fleet::HostLogin& login : run.logins) {
        for (const auto* source : {&login.password, &login.exportPassword}) {
            const Secret* secret = nullptr;
            if (*source && passwords.Of(**source, secret).Ok()) Varnex::HideInLog(secret->Reveal());
        }
    }
}

void AddSecret(const std::optional<SecretSource>& source, const char* member,
               Fleet::Passwords& passwords, json::object& object) {
    const Secret* secret = nullptr;
    if (!source || !passwords.Of(*source, secret).Ok()) return;
    object[member] = secret->Reveal();
}

// What a worker is told first (Assignment.h).
Secret HelloTo(const FleetHostRow& host, const Preparation& run, Fleet::Passwords& passwords) {
    json::array arguments;
    for (const std::string& argument : Fleet::FromJson(host.arguments)) {
        arguments.emplace_back(argument);
    }
    json::object hello{{"arguments", std::move(arguments)},
                       {"fleet", run.run.id},
                       {"number", host.number},
                       {"gate", run.run.command == "collect"},
                       {"conductor", getpid()}};
    const Fleet::HostLogin& login = run.logins[static_cast<std::size_t>(host.number) - 1];
    AddSecret(login.password, "password", passwords, hello);
    AddSecret(login.exportPassword, "export_password", passwords, hello);
    return Secret(json::serialize(hello));
}

Fleet::Conductor::Job JobOf(const Preparation& run, Fleet::Passwords& passwords) {
    Fleet::Conductor::Job job;
    job.run = run.run;
    job.hosts = run.hosts;
    for (const Fleet::HostLogin& login : run.logins) job.logins.push_back(login.who);
    job.pace = PaceOf(run.settings.pace);
    job.worker = {kThisProgram, kWorker};
    job.hello = [&run, &passwords](const FleetHostRow& host) {
        return HelloTo(host, run, passwords);
    };
    return job;
}

Outcome StillAtWork(History::Id fleet) {
    const std::string number = std::to_string(fleet);
    return Failure(
        kLocalFile, Cause::kLocked,
        "Fleet run " + number + " is still at work: see kemffdc fleet status " + number + ".");
}

// Into the journal.
Outcome Enter(Preparation& run, FleetJournal& journal) {
    try {
        if (run.run.id > 0) {
            return journal.ResumeFleet(run.run.id) ? Outcome() : StillAtWork(run.run.id);
        }
        run.run.id = journal.BeginFleet(run.run, run.hosts);
        return {};
    } catch (const History::StoreError& error) {
        return Failure(kLocalFile, error.what());
    }
}

// What a run leaves behind it, whatever has become of it.
void Finish(const Preparation& run, int code, Books& books, Fleet::Audience& audience) {
    const Fleet::FleetOptions& own = run.settings.pace;
    const Fleet::Aftermath aftermath{own.keep, own.metrics, Fleet::ProgramWords(own.onFinish)};
    try {
        books.journal.EndFleet(run.run.id, code);
    } catch (const History::StoreError& error) {
        audience.Noted(error.what());
    }
    const std::string fault = Fleet::WriteReports(books.journal, run.run.id, run.run.folder);
    if (!fault.empty()) audience.Noted(fault);
    for (const std::string& note :
         Fleet::AfterRun(books.store, books.journal, run.run.id, aftermath)) {
        audience.Noted(note);
    }
}

// From the first worker to the last word.
int Conduct(Preparation& run, Fleet::Passwords& passwords, const Options& options, Books& books,
            std::ostream& out) {
    HideSecrets(run, passwords);
    const auto audience = Fleet::MakeAudience(
        {options.liveProgress && !options.events, options.json, options.events}, out);
    Fleet::Conductor conductor(JobOf(run, passwords), books.journal, *audience);
    const int code = conductor.Run();
    Finish(run, code, books, *audience);
    run.folder.Release();
    audience->Ended(conductor.TheScene(), code);
    return code;
}

// All that can be refused is refused here, before a BMC is asked anything.
int Launch(Preparation& run, const Options& options, Books& books, std::ostream& out,
           std::ostream& err) {
    Fleet::Passwords passwords;
    Outcome outcome = CheckCapacity(run);
    if (outcome.Ok()) outcome = ReadPasswords(run, passwords, err);
    if (outcome.Ok()) outcome = OpenFolders(options.output, run);
    if (outcome.Ok()) outcome = Enter(run, books.journal);
    if (!outcome.Ok()) return Refuse(outcome, run.run.command, options, out, err);
    return Conduct(run, passwords, options, books, out);
}

// The newest run that has not ended well, or the one that is named.
Outcome FindUnfinished(const Options& options, const FleetJournal& journal, FleetRunRow& run) {
    if (!options.subject.empty()) return FindFleetRun(options, journal, run);
    for (const FleetRunRow& row : journal.Fleets(std::numeric_limits<int>::max())) {
        if (row.exitCode == kDone) continue;
        run = row;
        return {};
    }
    return Failure(kUsage, "There is no fleet run that has not ended well.");
}

Outcome Recall(const Options& options, const FleetJournal& journal, Preparation& run) {
    try {
        FleetRunRow row;
        Outcome found = FindUnfinished(options, journal, row);
        if (!found.Ok()) return found;
        run.run = row;
        if (journal.IsLive(row.id)) return StillAtWork(row.id);
        const std::vector<FleetHostRow> hosts = journal.Hosts(row.id);
        // One that was killed right before its end still owes its reports.
        const bool ended = !row.endedAt.empty();
        if (ended && std::all_of(hosts.begin(), hosts.end(), IsDone)) {
            return Failure(kUsage,
                           "Fleet run " + std::to_string(row.id) + " has nothing left to do.");
        }
        return PrepareAgain(options, row, hosts, run);
    } catch (const History::StoreError& error) {
        return Failure(kLocalFile, error.what());
    }
}

}  // namespace

int RunFleet(const Options& options, std::ostream& out, std::ostream& err) {
    const std::string command = options.command == Command::kFleetCheck ? "check" : "collect";
    Fleet::Plan plan;
    Outcome outcome = MakePlan(options, plan);
    for (const std::string& note : plan.notes) err << "kemffdc: " << note << "\n";
    std::unique_ptr<Books> books;
    if (outcome.Ok()) outcome = OpenBooks(options, books);
    if (!outcome.Ok()) return Refuse(outcome, command, options, out, err);
    Preparation run = PrepareNew(options, command, plan);
    return Launch(run, options, *books, out, err);
}

int ResumeFleet(const Options& options, std::ostream& out, std::ostream& err) {
    std::unique_ptr<Books> books;
    Preparation run;
    Outcome outcome = OpenBooks(options, books);
    if (outcome.Ok()) outcome = Recall(options, books->journal, run);
    const std::string command = run.run.command.empty() ? "collect" : run.run.command;
    if (!outcome.Ok()) return Refuse(outcome, command, options, out, err);
    return Launch(run, options, *books, out, err);
}

}  // namespace Kemffdc
