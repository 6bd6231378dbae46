// SPDX-License-Identifier: Apache-2.0
#include "cli/Run.h"

#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <ostream>
#include <set>
#include <utility>

#include "IpmiSessions.h"
#include "LogSink.h"
#include "cli/Archive.h"
#include "cli/Arrivals.h"
#include "cli/Channels.h"
#include "cli/CommonOptions.h"
#include "cli/Context.h"
#include "cli/Limits.h"
#include "cli/Passwords.h"
#include "cli/auto/Search.h"
#include "cli/history/BmcLock.h"
#include "cli/history/Recorder.h"
#include "cli/history/StateFolder.h"
#include "cli/http/CaFile.h"
#include "cli/http/CertificateJudge.h"
#include "cli/report/Events.h"
#include "cli/report/Json.h"
#include "cli/report/Report.h"
#include "cli/report/Words.h"
#include "cli/terminal/Interrupt.h"
#include "cli/terminal/Program.h"
#include "cli/terminal/Progress.h"
#include "cli/terminal/Secret.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

constexpr std::chrono::milliseconds kGoodbye{200};  // for the BMC to hear that its session ends
constexpr std::chrono::seconds kFarewell{2};        // for what a channel owes it besides

constexpr std::size_t kLongNote = 1000;

constexpr int kFileLevel = 4;  // who asks for a file wants to read it all

// Returns whether records of the library will go to standard error.
Outcome SetUpLog(const Options& options, bool& toTerminal) {
    const bool toFile = !options.logFile.empty();
    toTerminal = !toFile && options.logLevel.value_or(0) > 0;
    if (toFile) {
        std::string error;
        if (!Varnex::SetLogFile(options.logFile, error)) {
            return Failure(kLocalFile, "Cannot write the log file " + options.logFile + ": " +
                                           Clean(error) + ".");
        }
    }
    // By default the library's lines stay away: the tool says in words what they mean.
    Varnex::SetLogLevel(options.logLevel.value_or(toFile ? kFileLevel : 0));
    return {};
}

void ForgetProxies() {
    for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY",
                             "ftp_proxy", "FTP_PROXY", "HTTP_PROXY", "sftp_proxy", "SFTP_PROXY"}) {
        unsetenv(name);
    }
}

// Nothing may prompt or read a password that is not needed.
Outcome ReadPasswords(const Options& options, Secret& password, Secret& exportPassword) {
    const std::optional<SecretSource> login = PasswordSource(options);
    Outcome outcome = login ? ReadSecret(*login, password) : Outcome{};
    // A BMC that has its task already has the other password too.
    if (!outcome.Ok() || options.command == Command::kResume) return outcome;
    const std::optional<SecretSource> store = ExportPasswordSource(options);
    return store ? ReadSecret(*store, exportPassword) : outcome;
}

// What is known of a run when it begins.
History::RunRow RowOf(const Options& options, const RunRecord& record) {
    std::error_code ignored;
    History::RunRow run;
    run.command = record.command;
    run.continues = options.resumes;
    run.toolVersion = KEMFFDC_VERSION;
    if (options.attempt) {
        run.fleet = options.attempt->fleet;
        run.fleetNumber = options.attempt->number;
    }
    run.channel = record.channel;
    run.host = record.host;
    run.port = record.port;
    run.user = record.user;
    run.logKind = record.logKind;
    run.exportUri = options.exportUri;
    if (options.exportUri.empty()) {
        run.output = std::filesystem::absolute(options.output, ignored).lexically_normal().string();
    }
    return run;
}

bool ShowsCertificate(const Channel& channel) {
    const OptionGroups groups = channel.options();
    return std::find(groups.begin(), groups.end(), &TlsOptions()) != groups.end();
}

// Tells what has been found out about the BMC's certificate.
class TrustTeller : public CertificateJudge::Audience {
public:
    TrustTeller(Report& report, Progress& progress) : m_report(report), m_progress(progress) {}

    void Trusted(CertificateTrust how) override { m_report.SetTrust(how); }
    void Noted(const std::string& sentence) override {
        m_progress.Say(sentence);
        m_report.AddNote(sentence);
    }

private:
    Report& m_report;
    Progress& m_progress;
};

// One run, from the first signal that could interrupt it to its report.
class Conductor {
public:
    // `given`: null: the options say where passwords come from.
    Conductor(const Options& options, std::optional<GivenPasswords> given, TurnGate* turns,
              std::ostream& out, std::ostream& err, bool live)
        : m_options(options),
          m_channel(*FindChannel(options.via)),
          m_turns(turns),
          m_out(out),
          m_err(err),
          m_given(std::move(given)),
          m_report(options),
          m_limits(options.maxSize, options.keepFree),
          m_interrupt(std::chrono::seconds(options.deadline),
                      {[this] { TellStopped(); }, [this] { CleanUp(); }}),
          m_events(options.events
                       ? std::make_unique<Events>(STDOUT_FILENO, m_options.attempt.has_value())
                       : nullptr),
          m_arrivals([this] { return m_interrupt.Raised(); }),
          m_progress(err, live, TerminalColumns, m_events.get()),
          m_trustTeller(m_report, m_progress),
          m_judge(options, m_trustTeller) {
        m_report.AddObserver(&m_recorder);
        if (m_events) m_report.AddObserver(m_events.get());
        m_channel.outline(options, m_report);
    }

    int Conduct(const Outcome& setUp) {
        Outcome outcome = setUp;
        try {
            if (outcome.Ok() && ShowsCertificate(m_channel)) outcome = m_judge.Prepare();
            if (outcome.Ok()) outcome = Work();
        } catch (const std::bad_alloc&) {
            outcome = Failure(kLocalFile, Cause::kOutOfMemory, "Out of memory.");
        } catch (const std::exception& failure) {
            outcome = Failure(kNotConnected, "The run failed: " + Clean(failure.what()));
        }
        if (m_interrupt.Raised() && !outcome.Ok()) outcome = Stopped();
        m_interrupt.ClaimEnding();
        Tell(outcome);
        m_folder.Discard();  // on a slow disk this takes longer than anybody waits for a word
        m_farewell.Pay(kFarewell);
        return outcome.code;
    }

private:
    Outcome Work() {
        // Who is to be refused shall not be asked for a password, and who waits is asked before.
        Outcome outcome = m_options.wait ? Outcome{} : LockBmc();
        if (outcome.Ok()) outcome = TakePasswords();
        if (outcome.Ok() && m_options.wait) outcome = LockBmc();
        if (!outcome.Ok()) return outcome;
        // A BMC may send back what it was sent.
        Varnex::HideInLog(m_password.Reveal(), m_options.user);
        Varnex::HideInLog(m_exportPassword.Reveal(), m_options.exportUser);

        const bool checks = m_options.command == Command::kCheck;
        if (!checks || m_options.attempt) BeginHistory();
        m_report.Begin();
        if (m_options.attempt && !m_options.attempt->note.empty()) {
            m_report.AddNote(m_options.attempt->note);
        }

        const bool downloads =
            m_options.exportUri.empty() && Holds(m_channel.options(), "--output");
        if (downloads) outcome = PrepareFolder();
        if (!outcome.Ok() && !checks) return outcome;
        if (m_options.attempt && FindDelivered(*m_options.attempt)) return {};

        Context context{m_options,  m_trust,      m_password,  m_exportPassword, m_progress,
                        m_report,   m_folder,     m_interrupt, m_limits,         m_arrivals,
                        m_recorder, m_bmcGathers, m_farewell,  m_turns};
        if (m_options.command == Command::kResume) return m_channel.resume(context);
        if (!checks) return NameOthers(m_channel.collect(context));
        const Outcome checked = NameOthers(m_channel.check(context));
        return checked.Ok() && !outcome.Ok() ? Failure(kLimited, outcome.cause, outcome.reason)
                                             : checked;
    }

    // Whoever has named a channel that the BMC does not have shall not have to search.
    Outcome NameOthers(Outcome outcome) const {
        const bool silent = outcome.code == kNotConnected && outcome.cause == Cause::kUnreachable;
        if (!silent || m_channel.knock == nullptr || m_interrupt.Raised()) return outcome;
        const std::string others = Auto::OthersThatAnswer(m_channel, m_options);
        if (!others.empty()) outcome.reason += " But there " + others + " Take it with --via.";
        return outcome;
    }

    Outcome TakePasswords() {
        if (!m_given) return ReadPasswords(m_options, m_password, m_exportPassword);
        m_password = std::move(m_given->password);
        m_exportPassword = std::move(m_given->exportPassword);
        const bool missing = m_options.needsPassword && m_password.Empty();
        return missing ? Failure(kUsage, Cause::kNoPassword, "There is no password.") : Outcome{};
    }

    // What an earlier attempt has brought, and had no time to tell.
    bool FindDelivered(const FleetAttempt& attempt) {
        if (attempt.archive.empty()) return false;
        m_report.BeginStep("verify");
        Delivery delivery;
        delivery.path = attempt.archive;
        const Outcome outcome = Measure(
            delivery.path, [this] { return m_interrupt.Raised(); }, delivery.size, delivery.sha256);
        const bool same =
            outcome.Ok() && delivery.size == attempt.size && delivery.sha256 == attempt.sha256;
        m_report.EndStep(same ? 0 : 1, same ? "an earlier attempt has brought it" : outcome.reason);
        if (same) m_report.SetDelivery(delivery);
        return same;
    }

    // check gathers nothing: it may run at any time.
    Outcome LockBmc() {
        if (m_options.command == Command::kCheck) return {};
        const History::BmcLock::Patience patience{
            [this](const std::string& holder) {
                m_progress.Say("Waiting for another run on this BMC (" + holder + ").");
            },
            [this] { return m_interrupt.Raised(); }};
        Outcome outcome =
            m_lock.Take(m_stateFolder, BmcOf(m_options), m_options.wait ? &patience : nullptr);
        Note(m_lock.Trouble());
        return outcome;
    }

    void BeginHistory() {
        m_historyBegun = true;
        m_recorder.Begin(m_stateFolder, RowOf(m_options, m_report.Now()));
        if (m_recorder.Number() != 0) m_report.SetNumber(m_recorder.Number());
        const std::string trouble = m_recorder.TakeTrouble();
        if (trouble != m_lock.Trouble()) Note(trouble);  // one folder, one word
    }

    // What is no reason to end a run.
    void Note(const std::string& text) {
        if (!text.empty()) m_progress.Say("Note: " + Clean(text, kLongNote));
    }

    Outcome PrepareFolder() {
        Outcome outcome = m_folder.Open(m_options.output);
        if (!outcome.Ok()) return outcome;
        if (m_options.command == Command::kCheck) return m_limits.Watch(m_folder.Path());
        for (const OutputFolder::LeftOver& leftOver : m_folder.RemoveLeftOvers(KnownParts())) {
            m_progress.Say("Removed " + leftOver.name + " (" + HumanBytes(leftOver.bytes) +
                           ") from " + m_folder.Path() + ": a run was killed and left it there.");
        }
        return m_limits.Watch(m_folder.Path());
    }

    // What earlier runs have kept for whoever goes on with them.
    std::vector<std::string> KnownParts() {
        std::vector<std::string> parts;
        try {
            if (m_stateFolder.empty() || !History::Store::Exists(m_stateFolder)) return parts;
            for (const History::ArchiveRow& row : History::Store(m_stateFolder).Partials()) {
                parts.push_back(row.partial);
            }
        } catch (const History::StoreError&) {
            // Said already: nothing is written into the history either.
        }
        return parts;
    }

    // How a run ends that a signal or its deadline has stopped.
    Outcome Stopped() const {
        const ExitCode code = m_interrupt.Code();
        Outcome demanded = m_interrupt.Demanded();
        if (code == demanded.code) return demanded;
        const std::string what = code == kInterrupted
                                     ? "Interrupted."
                                     : "The run has not ended within " +
                                           Elapsed(std::chrono::seconds(m_options.deadline)) +
                                           " (--deadline).";
        return Failure(code, code == kInterrupted ? Cause::kUnnamed : Cause::kDeadline,
                       what + (m_bmcGathers ? " A BMC that has begun to gather goes on." : ""));
    }

    // Called while the run is still blocked somewhere; the process ends right after it.
    void TellStopped() {
        try {
            m_recorder.Hurry();
            RestoreTerminal();
            Tell(Stopped());
        } catch (...) {
            // Out of memory: the exit code has to say it.
        }
    }

    void CleanUp() {
        KillProgram();
        Varnex::CloseIpmiSessions(kGoodbye);
        m_folder.Discard();
        m_farewell.Pay(kFarewell);
    }

    void Tell(const Outcome& ending) {
        Outcome outcome = ending;
        // Disk and size are the limits of what may lie here.
        const bool room = outcome.code != kLocalFile && outcome.cause != Cause::kTooLarge;
        if (!CanGoOn(outcome.code) || !room) m_folder.KeepParts(false);
        if (CanGoOn(outcome.code) && !m_options.attempt) {
            outcome.reason += " This run can be continued: kemffdc resume " +
                              std::to_string(m_recorder.Number()) + StateOption();
        }
        const std::optional<RunRecord> record = m_report.End(outcome);
        if (record) Keep(*record);
        m_progress.End();
        if (record) Tell(*record);
        m_interrupt.Told();
    }

    // The BMC has a task, whose archive has not come, and nothing says that it never will.
    bool CanGoOn(ExitCode code) {
        static const std::set<ExitCode> ended{kDone, kUsage, kTaskFailed, kIncomplete, kLimited};
        if (m_recorder.Number() == 0 || m_recorder.HasSeveral()) return false;
        const RunRecord now = m_report.Now();
        const Channel* taken = FindChannel(now.channel);  // not the one that has searched for it
        if (taken == nullptr || taken->resume == nullptr) return false;
        const bool delivered = !now.delivery.path.empty() || !now.delivery.exportUri.empty();
        return now.task && !now.task->uri.empty() && !delivered && ended.count(code) == 0;
    }

    // As the shell takes it.
    std::string StateOption() const {
        if (m_options.stateDir.empty()) return "";
        std::string quoted = "'";
        for (const char c : m_options.stateDir)
            quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
        return " --state-dir " + Clean(quoted) + "'";
    }

    void Tell(const RunRecord& record) {
        WriteReason(record.outcome, m_err);
        if (m_events) {
            if (!m_events->End(record)) m_out.setstate(std::ios::badbit);
        } else if (m_options.json) {
            m_out << JsonText(RunObject(record)) << "\n";
        } else {
            WriteWords(record, m_out);
        }
        m_out.flush();
    }

    // What outlives the run stands before anybody hears of its end.
    void Keep(const RunRecord& record) {
        // Of an attempt nothing may stay open, however early it has ended.
        if (m_options.attempt && !m_historyBegun) BeginHistory();
        m_recorder.End(record);
        Note(m_recorder.TakeTrouble());
        if (record.delivery.path.empty() || HasRecord(record.delivery.path)) return;
        Note(m_folder.DeliverRecord(record.delivery.path, JsonText(RunObject(record)) + "\n")
                 .reason);
    }

    // Of what an earlier attempt has delivered.
    bool HasRecord(const std::string& path) const {
        std::error_code ignored;
        return m_options.attempt && m_options.attempt->archive == path &&
               std::filesystem::exists(RecordPath(path), ignored);
    }

    const Options& m_options;
    const Channel& m_channel;
    TurnGate* const m_turns;
    const std::string m_stateFolder = History::StateFolder(m_options.stateDir);
    std::ostream& m_out;
    std::ostream& m_err;
    // Before the secrets' users, and destroyed after them.
    std::optional<GivenPasswords> m_given;
    Secret m_password;
    Secret m_exportPassword;
    Report m_report;
    OutputFolder m_folder;
    Limits m_limits;
    std::atomic<bool> m_bmcGathers{false};
    History::BmcLock m_lock;
    History::Recorder m_recorder;
    std::atomic<bool> m_historyBegun{false};
    Farewell m_farewell;
    Interrupt m_interrupt;                   // before any thread is started
    const std::unique_ptr<Events> m_events;  // null without --events
    Arrivals m_arrivals;
    Progress m_progress;
    TrustTeller m_trustTeller;
    CertificateJudge m_judge;
    const Trust m_trust = m_judge.AsTrust();
};

int Conduct(const Options& options, std::optional<GivenPasswords> given, TurnGate* turns,
            std::ostream& out, std::ostream& err) {
    AnnounceCaFile(options.caFile);
    if (options.noProxy) ForgetProxies();
    bool logOnTerminal = false;
    Outcome setUp = SetUpLog(options, logOnTerminal);
    Conductor conductor(options, std::move(given), turns, out, err,
                        options.liveProgress && !logOnTerminal);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    return conductor.Conduct(setUp);
}

}  // namespace

int Run(const Options& options, std::ostream& out, std::ostream& err) {
    return Conduct(options, std::nullopt, nullptr, out, err);
}

int RunAttempt(const Options& options, GivenPasswords passwords, TurnGate* turns, std::ostream& out,
               std::ostream& err) {
    return Conduct(options, std::move(passwords), turns, out, err);
}

}  // namespace Kemffdc
