// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/standard/Collect.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <utility>

#include "LogSink.h"
#include "Transfer.h"
#include "Uri.h"
#include "cli/CertificateGuard.h"
#include "cli/Context.h"
#include "cli/archive/Kind.h"
#include "cli/redfish/Diagnosis.h"
#include "cli/redfish/Earlier.h"
#include "cli/redfish/Fetching.h"
#include "cli/redfish/Options.h"
#include "cli/redfish/Preflight.h"
#include "cli/redfish/Requests.h"
#include "cli/redfish/Session.h"
#include "cli/redfish/standard/DataHead.h"
#include "cli/redfish/standard/Diagnosis.h"
#include "cli/redfish/standard/Gathering.h"
#include "cli/redfish/standard/Part.h"
#include "cli/terminal/Text.h"
#include "file_client.h"

namespace Kemffdc::Redfish {
namespace {

constexpr char kFolder[] = "diagnostics";  // of several collections

using HeaderLines = curlcpp::option_traits<std::list<std::string>, CURLOPT_HTTPHEADER>;

std::string LastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// "Dump" of "/redfish/v1/Managers/1/LogServices/Dump/Entries/4"
std::string LogOf(const std::string& entry) {
    const std::size_t entries = entry.rfind("/Entries/");
    return entries == std::string::npos ? "diagnostics" : LastComponent(entry.substr(0, entries));
}

// One run over one session: one collection, or several.
class StandardRun {
public:
    StandardRun(Context& run, const LogServices& services)
        : m_run(run),
          m_services(services),
          m_guard(run, EndpointOf(run.options), kRedfishService),
          m_session(run),
          m_part(std::make_shared<StandardPart>(services)) {
        run.report.SetPart(m_part);
    }

    Outcome Collect() {
        const Selection selection = Select(m_services, Own(m_run.options));
        if (!selection.fault.empty()) {
            return Failure(kLimited, Cause::kUnsupported, selection.fault);
        }
        if (!selection.note.empty()) Note(selection.note);
        Outcome outcome = m_session.Open();
        if (!outcome.Ok()) return outcome;
        return selection.collections.size() == 1 ? CollectOne(selection.collections.front())
                                                 : CollectAll(selection.collections);
    }

    Outcome Resume(const Earlier& earlier) {
        m_earlier = &earlier;
        Outcome outcome = m_session.Open();
        if (!outcome.Ok()) return outcome;
        Collected one;
        Gathering gathering(m_run, m_session);
        LogEntry entry;
        m_run.Begin("gather");
        m_run.bmcGathers = true;
        m_run.report.Reach(Milestone::kGathering, earlier.task);
        gathering.GoOn(earlier.task, earlier.begun, m_services);
        outcome = gathering.Wait(entry);
        outcome = m_run.End(outcome.code, outcome);
        return outcome.Ok() ? Bring(entry, one) : outcome;
    }

private:
    Outcome CollectOne(const Collection& wanted) {
        Collected one{wanted, "", {}, {}};
        LogEntry entry;
        const Outcome outcome = Gather(wanted, entry);
        return outcome.Ok() ? Bring(entry, one) : outcome;
    }

    // What comes is delivered together, whatever becomes of the others.
    Outcome CollectAll(const std::vector<Collection>& collections) {
        if (mkdir(m_run.folder.WorkPath(kFolder).c_str(), 0700) != 0) {
            return Failure(kLocalFile, "The working folder cannot be written to.");
        }
        m_run.recorder.SetSeveral();
        std::vector<Collected> all;
        for (const Collection& wanted : collections) {
            Collected one{wanted, "", {}, {}};
            LogEntry entry;
            one.outcome = Gather(wanted, entry);
            if (one.outcome.Ok()) one.outcome = Fetch(entry, kFolder + std::string("/"), one);
            if (m_run.interrupt.Raised()) return one.outcome;
            all.push_back(one);
            if (EndsAll(one.outcome)) break;
        }
        return DeliverAll(all);
    }

    // What would be the same with the next one.
    static bool EndsAll(const Outcome& outcome) {
        return outcome.code == kNotConnected || outcome.code == kLocalFile ||
               outcome.cause == Cause::kTooLarge;
    }

    static bool HasCome(const Collected& one) { return one.outcome.Ok(); }

    Outcome Gather(const Collection& wanted, LogEntry& entry) {
        Gathering gathering(m_run, m_session);
        m_run.Begin("export");
        m_run.report.Reach(Milestone::kExporting);
        m_run.bmcGathers = true;
        Outcome outcome = gathering.Begin(wanted);
        if (!outcome.Ok()) m_run.bmcGathers = false;
        outcome = m_run.End(outcome.code, outcome);
        if (!outcome.Ok()) return outcome;
        m_run.report.Reach(Milestone::kGathering, gathering.TaskUri());
        m_run.Begin("gather");
        outcome = gathering.Wait(entry);
        return m_run.End(outcome.code, outcome);
    }

    // The data of one entry, as what the run was for.
    Outcome Bring(const LogEntry& entry, Collected& one) {
        Outcome outcome = Fetch(entry, "", one);
        if (outcome.Ok()) {
            const std::string name = LastComponent(one.file.path);
            outcome = m_run.Deliver(name, name, one.file.path);
            if (outcome.Ok()) outcome = TellDelivered(m_run, one.file, m_bmcPath);
            one.outcome = outcome;
            m_part->Add(one);
        }
        if (outcome.Ok()) DeleteAfter(one.entry);
        if (!m_run.interrupt.Raised()) m_run.farewell.Pay(kSessionSeconds);
        return outcome;
    }

    // Downloads and verifies; `folder`: in the working folder, empty or with a slash at its end.
    // Where one.file.path stands then it is not delivered yet.
    Outcome Fetch(const LogEntry& entry, const std::string& folder, Collected& one) {
        one.entry = entry.path;
        const Reference place =
            Resolve(entry.dataUri, entry.path, EndpointOf(m_run.options), m_session.Address());
        Outcome outcome = DiagnosePlace(entry, place);
        if (outcome.Ok()) outcome = m_guard.Check();
        if (outcome.Ok() && !std::exchange(m_hasTurn, true)) outcome = m_run.AwaitTurn();
        if (!outcome.Ok()) return outcome;
        m_bmcPath = Varnex::WithoutHiddenSecrets(place.path);
        m_run.recorder.SetBmcPath(m_bmcPath);
        m_run.Begin("download");
        const DataHead head = ReadHead(m_session.Head(place.Target()));
        const std::string name = folder + NameOf(entry, head, one, !folder.empty());
        outcome = Download(place, name);
        outcome = m_run.End(outcome.code, outcome);
        if (outcome.Ok()) outcome = m_guard.CheckAfterwards();
        return outcome.Ok() ? Verify(entry, head, name, one.file) : outcome;
    }

    // The BMC's own name where it gives one; else that of the log and the entry.
    std::string NameOf(const LogEntry& entry, const DataHead& head, const Collected& one,
                       bool several) {
        const std::string last = LastComponent(m_bmcPath);
        std::string name = head.fileName;
        if (name.empty() && last.find('.') != std::string::npos) name = last;
        if (name.empty()) name = LogOf(entry.path) + "_" + LastComponent(entry.path);
        if (!several) return m_run.NameFor(name);
        const std::string& type = one.wanted.oemType.empty() ? one.wanted.type : one.wanted.oemType;
        // Two logs may have the same name, and entries of the same number.
        const std::string number = std::to_string(++m_fetched);
        return ArchiveName("{name}", {"", "", "", number + "_" + type + "_" + name});
    }

    Outcome Download(const Reference& place, const std::string& name) {
        const Options& options = m_run.options;
        try {
            Uri uri("https", options.host, options.port, options.user, m_run.password.Reveal(),
                    place.path);
            uri.set_query(place.query);
            Downloaded downloaded = DownloadOnce(uri, name);
            if (downloaded.error == Varnex::TransferFault::kLoginRefused && m_session.Renew()) {
                downloaded = DownloadOnce(uri, name);
            }
            return DiagnoseDownload(downloaded, {});
        } catch (const std::invalid_argument& fault) {
            return DiagnoseDownload({2}, {{EventKind::kBadUri, 0, 0, fault.what()}});
        }
    }

    Downloaded DownloadOnce(const Uri& uri, const std::string& name) {
        std::list<std::string> lines{"Accept: */*"};
        if (!m_session.Token().Empty()) {
            lines.push_back("X-Auth-Token: " + m_session.Token().Reveal());
        }
        const DownloadWatch watch(m_run,
                                  m_earlier == nullptr ? "" : m_earlier->TakeOverPart(m_run, name));
        const std::error_code error =
            file_client::download(uri, m_run.folder.WorkPath(name), HeaderLines(lines));
        return {error ? 2 : 0, error, watch.ErrorText()};
    }

    // Is it what the BMC has announced? It gets the name of what it is.
    Outcome Verify(const LogEntry& entry, const DataHead& head, const std::string& name,
                   DeliveredFile& file) {
        m_run.Begin("verify");
        const std::string before = m_run.folder.WorkPath(name);
        file.path = Archives::NamedAs(before, Archives::ExtensionFor(before, head.contentType));
        (void)std::rename(before.c_str(), file.path.c_str());
        Outcome outcome = MeasureArchive(m_run, file);
        const std::string difference = Difference(entry, head.sha256, file.size, file.sha256);
        if (outcome.Ok() && !difference.empty()) {
            file.whole = false;
            file.damage = difference;
        }
        return m_run.End(outcome.code, outcome);
    }

    Outcome DeliverAll(std::vector<Collected>& all) {
        if (std::none_of(all.begin(), all.end(), HasCome)) return all.front().outcome;
        Delivery delivery;
        Outcome outcome = m_run.Deliver(kFolder, m_run.NameFor(kFolder), delivery.path);
        if (!outcome.Ok()) return outcome;
        std::string missing;
        for (Collected& one : all) {
            if (HasCome(one)) {
                one.file.path = delivery.path + "/" + LastComponent(one.file.path);
                delivery.size += one.file.size;
                delivery.files.push_back(one.file);
                one.outcome = DiagnoseDamage(one.file);
            }
            if (one.outcome.Ok()) DeleteAfter(one.entry);
            if (!one.outcome.Ok()) missing += " " + one.wanted.type + ": " + one.outcome.reason;
            m_part->Add(one);
        }
        m_run.report.SetDelivery(delivery);
        if (!m_run.interrupt.Raised()) m_run.farewell.Pay(kSessionSeconds);
        return missing.empty() ? Outcome{}
                               : Failure(kIncomplete, "Not all types came whole." + missing);
    }

    void DeleteAfter(const std::string& entry) {
        if (!Own(m_run.options).deleteAfter || entry.empty()) return;
        const Answer answer = m_session.Delete(entry);
        if (answer.failedAt == Stage::kDone && answer.IsSuccess()) return;
        Note("The BMC has not deleted " + Clean(entry) + " (HTTP " +
             std::to_string(answer.httpCode) + ").");
    }

    void Note(const std::string& sentence) {
        m_run.progress.Say("Note: " + sentence);
        m_run.report.AddNote(sentence);
    }

    Context& m_run;
    const LogServices& m_services;
    CertificateGuard m_guard;
    Session m_session;
    const std::shared_ptr<StandardPart> m_part;
    const Earlier* m_earlier = nullptr;  // of a resumed run
    bool m_hasTurn = false;              // to download
    int m_fetched = 0;                   // of several
    std::string m_bmcPath;               // of the data that was fetched last
};

}  // namespace

Outcome CollectStandard(Context& run, const LogServices& services) {
    return StandardRun(run, services).Collect();
}

Outcome ResumeStandard(Context& run) {
    Earlier earlier;
    Outcome outcome = Recall(run, earlier);
    if (!outcome.Ok()) return outcome;
    Preflight found;
    outcome = ReachAgain(run, Operation::kStandard, found);
    if (outcome.Ok()) outcome = Adopt(run, Operation::kStandard, earlier);
    if (!outcome.Ok()) return outcome;
    outcome = StandardRun(run, found.logServices).Resume(earlier);
    // An attempt of a fleet run asks once more; who has named a run is told.
    const bool lost = earlier.task.empty() && outcome.cause == Cause::kTaskLost;
    if (!lost || !run.options.attempt || run.interrupt.Raised()) return outcome;
    run.report.AddNote(
        "An earlier attempt had asked for a collection, and the BMC has neither a task nor an entry "
        "of it: it was asked once more.");
    return CollectStandard(run, found.logServices);
}

}  // namespace Kemffdc::Redfish
