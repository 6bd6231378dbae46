// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Flow.h"

#include <varnex/KEMFfdc.h>

#include <filesystem>
#include <memory>

#include "UsbLanCfg.h"
#include "cli/Connection.h"
#include "cli/Context.h"
#include "cli/ipmi/Diagnosis.h"
#include "cli/ipmi/Events.h"
#include "cli/ipmi/Options.h"
#include "cli/ipmi/Preflight.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Ipmi {
namespace {

namespace fs = std::filesystem;

constexpr std::int32_t kOverLan = 1;
constexpr std::int32_t kInBand = 0;

constexpr int kAccountOverSession = 2;  // the mode that asks nobody in band

constexpr char kFolderName[] = "KEMFFDC";  // what a folder of files is called in {name}

constexpr int kPollSeconds = 5;
constexpr int kLongestGathering = 900;  // seconds
constexpr int kPlainLineEvery = 30;     // seconds; where the line is not live

bool IsInBand(const Context& run) { return Own(run.options).inBand; }

Varnex::VarnexConnection::ConnectionInfo ConnectionOf(const Context& run) {
    auto conn = ConnectionToBmc(run);
    conn.ciphersuite = Own(run.options).cipherSuite;
    conn.connection_case = IsInBand(run) ? kInBand : kOverLan;
    return conn;
}

// Shows how long the BMC has been gathering: one dot before every poll.
class GatheringWatch : public Varnex::LogMessageCallBack {
public:
    explicit GatheringWatch(Context& run) : m_run(run) {}

    void LogMessage(const std::string& message) override {
        if (message != ".") {
            m_run.report.Reach(Milestone::kGathering);
            m_run.progress.Step("gather");
            return;
        }
        if (m_run.options.liveProgress || m_waited % kPlainLineEvery == 0) {
            m_run.progress.State("the BMC gathers, " + std::to_string(m_waited) + " of at most " +
                                 std::to_string(kLongestGathering) + " s");
        }
        m_waited += kPollSeconds;
    }

private:
    Context& m_run;
    int m_waited = 0;  // seconds
};

// Waits for the run's turn when the library has done with gathering and asks for the BMC's files:
// before it opens a session with their service, which would not wait with it.
class FileGate : public Varnex::TransferWatcher {
public:
    explicit FileGate(Context& run) : m_run(run) { Varnex::AddTransferWatcher(this); }
    ~FileGate() override { Varnex::RemoveTransferWatcher(this); }
    FileGate(const FileGate&) = delete;
    FileGate& operator=(const FileGate&) = delete;

    void ListingStarted(const std::string&) override {
        if (!m_passed) (void)m_run.AwaitTurn();  // a run that is to stop is ended by another thread
        m_passed = true;
    }
    bool Progress(const Varnex::TransferProgress&) override { return true; }

private:
    Context& m_run;
    bool m_passed = false;
};

void ExplainSkipped(std::vector<RemoteFile>& files, int mode) {
    for (RemoteFile& file : files) {
        if (file.state != RemoteFile::State::kSkipped) continue;
        file.reason = "mode " + std::to_string(mode) + " does not ask for it";
    }
}

// One BMC, reached through the library.
class BmcRun {
public:
    explicit BmcRun(Context& run)
        : m_run(run),
          m_listener(run),
          m_gathering(run),
          // The library puts no separator between this path and the name of its folder.
          m_ffdc(ConnectionOf(run), run.folder.WorkPath(""), Own(run.options).mode) {
        run.report.SetPart(m_list);
        m_ffdc.SetLogCallBack(&m_gathering);
    }

    // Until the BMC can be told to gather.
    Outcome Reach() {
        Outcome outcome = IsInBand(m_run) ? FindFileService() : Outcome{};
        if (outcome.Ok()) outcome = Connect();
        if (outcome.Ok()) m_run.report.Reach(Milestone::kReached);
        return outcome;
    }

    // What the BMC is, and in band whether it answers at all.
    Outcome Describe() {
        m_run.Begin("describe");
        m_ffdc.Disconnect();
        const std::string silence = AskDeviceId(m_run.options, m_run.password, m_facts);
        // Over the LAN the session has shown that the BMC lives; in band only the device was
        // opened.
        if (IsInBand(m_run) && !silence.empty()) return m_run.End(1, DiagnoseSilentBmc(silence));
        m_run.report.SetFacts(m_facts);
        return m_run.End(0, {});
    }

    // Whether the BMC's files could be fetched: the library asks after it has gathered.
    Outcome LookAtFiles() {
        m_run.Begin("file-service");
        const std::string host = m_usbHost.empty() ? m_run.options.host : m_usbHost;
        const FileService found = LookAtFileService(host, m_run.options, m_run.password);
        const RunEvents events = m_listener.Events();
        SetFacts(events);
        return m_run.End(static_cast<int>(found.state), DiagnoseFileService(found, host, events));
    }

    // The same with a session open, before and after.
    Outcome LookBeforeGathering() {
        const bool alone = IsInBand(m_run) && Own(m_run.options).mode != kAccountOverSession;
        if (alone) m_ffdc.Disconnect();  // who asks for the account needs the interface for himself
        Outcome outcome = LookAtFiles();
        if (outcome.Ok() && alone) outcome = Connect();
        return outcome;
    }

    Outcome Collect() {
        m_run.report.Reach(Milestone::kExporting);
        m_run.Begin("collect");
        const int code = Apply();
        RunEvents events = m_listener.Events();
        SetFacts(events);
        Outcome outcome = m_run.End(code, DiagnoseCollect(code, events, m_run.options));
        if (outcome.code != kInterrupted) outcome = Keep(code, events);
        ExplainSkipped(events.files, Own(m_run.options).mode);
        m_list->Set(events.files, NotTried(events));
        m_list->SetRefusals(events.refusals);
        return outcome;
    }

private:
    int Apply() {
        const FileGate gate(m_run);
        return m_ffdc.Apply();
    }

    void SetFacts(const RunEvents& events) {
        BmcFacts facts = m_facts;
        facts.address = events.address;
        facts.hostKey = events.hostKey;
        for (const std::string& sentence : events.hostKeys) facts.notes.push_back(sentence);
        const std::string folders = FoldersPassedOver(events);
        if (!folders.empty()) facts.notes.push_back(folders);
        m_run.report.SetFacts(facts);
    }

    // Without it there would be nowhere to fetch the files from. The firmware's table tells, unless
    // the operator does.
    Outcome FindFileService() {
        m_run.Begin("preflight");
        if (!m_run.options.host.empty()) {
            m_facts.notes.push_back("The BMC's files come from " + m_run.options.host + ".");
            return m_run.End(0, {});
        }
        UsbLanNodeList nodes;
        UsbLanCfg& usbLan = UsbLanCfg::GetInstance(kUsbLanLeaveAsFound, false);
        const int code = usbLan.QueryUsbLanState(nodes, false);
        if (code != 0 || nodes.empty()) {
            return m_run.End(
                code, Failure(kNotConnected,
                              "This machine has no network interface to its BMC, so its files "
                              "cannot be fetched (" +
                                  Clean(m_listener.Events().inBand) +
                                  "). If the BMC can be reached otherwise, give its address "
                                  "after --via kcs."));
        }
        m_usbHost = nodes.front().address;
        m_facts.notes.push_back("The BMC's files come from " + Clean(m_usbHost) + " through " +
                                Clean(nodes.front().interface) + ".");
        return m_run.End(0, {});
    }

    Outcome Connect() {
        m_run.Begin("connect");
        const int code = m_ffdc.Connect();
        return m_run.End(code, DiagnoseConnect(code, m_listener.Events(), m_run.options));
    }

    // Delivers the whole files, if there are any, however the run has ended.
    Outcome Keep(int code, RunEvents& events) {
        m_run.Begin("verify");
        const fs::path folder = m_ffdc.GetFFDCPath();
        Delivery delivery;
        Outcome outcome = MeasureAll(folder, events, delivery.size);
        const bool any = outcome.Ok() && Fetched(events) > 0;
        if (any) {
            outcome = m_run.Deliver(folder.filename().string(), m_run.NameFor(kFolderName),
                                    delivery.path);
        }
        outcome = m_run.End(outcome.code, outcome);
        if (outcome.Ok()) outcome = DiagnoseCollect(code, events, m_run.options);
        if (outcome.Ok()) outcome = DiagnoseUnreadable(events);
        if (!delivery.path.empty()) TellDelivery(delivery, events);
        return outcome;
    }

    void TellDelivery(Delivery& delivery, RunEvents& events) {
        for (RemoteFile& file : events.files) {
            if (file.state != RemoteFile::State::kFetched) continue;
            file.path = (fs::path(delivery.path) / file.name).string();
            delivery.files.push_back({file.path, file.size, file.sha256, file.whole, file.damage});
        }
        m_run.report.SetDelivery(delivery);
    }

    // A file may be gone again: the BMC can have two of one name, or one with the name that the
    // other has while it is on its way.
    Outcome MeasureAll(const fs::path& folder, RunEvents& events, std::uint64_t& total) {
        for (RemoteFile& file : events.files) {
            if (file.state != RemoteFile::State::kFetched) continue;
            Outcome outcome = m_run.arrivals.Measure((folder / file.name).string(),
                                                     [this] { return m_run.interrupt.Raised(); },
                                                     file.size, file.sha256);
            if (outcome.code == kInterrupted) return outcome;
            if (!outcome.Ok()) {
                file.state = RemoteFile::State::kFailed;
                file.reason = "it was replaced by another file of the BMC";
            }
            total += file.size;
            if (outcome.Ok()) Examine(folder, file);
            if (m_run.interrupt.Raised()) return Failure(kInterrupted, "Interrupted.");
        }
        return {};
    }

    void Examine(const fs::path& folder, RemoteFile& file) {
        DeliveredFile fetched;
        fetched.path = (folder / file.name).string();
        m_run.Examine(fetched);
        file.whole = fetched.whole;
        file.damage = fetched.damage;
    }

    static std::size_t Fetched(const RunEvents& events) {
        std::size_t count = 0;
        for (const RemoteFile& file : events.files) {
            if (file.state == RemoteFile::State::kFetched) ++count;
        }
        return count;
    }

    Context& m_run;
    Listener m_listener;
    GatheringWatch m_gathering;
    Varnex::KEMFfdc m_ffdc;
    const std::shared_ptr<FileList> m_list = std::make_shared<FileList>();
    BmcFacts m_facts;
    std::string m_usbHost;
};

}  // namespace

Outcome Collect(Context& run) {
    BmcRun ipmi(run);
    Outcome outcome = ipmi.Reach();
    if (outcome.Ok()) outcome = ipmi.LookBeforeGathering();
    if (outcome.Ok()) outcome = ipmi.Collect();
    return outcome;
}

Outcome Check(Context& run) {
    BmcRun ipmi(run);
    Outcome outcome = ipmi.Reach();
    if (outcome.Ok()) outcome = ipmi.Describe();
    if (outcome.Ok()) outcome = ipmi.LookAtFiles();
    return outcome;
}

}  // namespace Kemffdc::Ipmi
