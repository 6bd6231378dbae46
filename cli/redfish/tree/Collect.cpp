// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/tree/Collect.h"

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <ctime>
#include <memory>
#include <ostream>

#include "Clock.h"
#include "cli/Context.h"
#include "cli/Utc.h"
#include "cli/archive/TreeManifest.h"
#include "cli/archive/Writer.h"
#include "cli/redfish/Fetching.h"
#include "cli/redfish/Requests.h"
#include "cli/redfish/Session.h"
#include "cli/redfish/tree/PatientSource.h"
#include "cli/redfish/tree/Walker.h"
#include "cli/report/ChannelPart.h"
#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

using namespace std::chrono_literals;
using Archives::TreeCounts;
namespace json = boost::json;

constexpr char kName[] = "tree.tar.gz";
constexpr auto kTellPause = 1s;
constexpr auto kWakePause = 200ms;  // of a sleep

// What the run tells of it.
class TreePart : public ChannelPart {
public:
    explicit TreePart(TreeCounts counts) : m_counts(std::move(counts)) {}

    void AddTo(json::object& run) const override { run["tree"] = Archives::TreeObject(m_counts); }

    void Write(std::ostream& out) const override {
        out << "Tree:    " << Archives::TreeWords(m_counts)
            << ". No archive of the BMC's own making.\n";
        for (const std::string& limit : m_counts.limits) out << "Note: " << limit << "\n";
    }

private:
    const TreeCounts m_counts;
};

// The archive while it is made, in the run's working folder.
class ArchiveSink : public Tree::Sink {
public:
    ArchiveSink(Context& run, std::string path)
        : m_run(run), m_path(std::move(path)), m_writer(m_path) {}

    bool Take(const std::string& name, const std::string& content) override {
        return m_writer.Add(name, content, std::time(nullptr)) && IsWithinLimits();
    }

    bool Close() { return m_writer.Close() && IsWithinLimits(); }

    // Why it takes nothing, where that is not a limit of the run's.
    Outcome Trouble() const {
        if (m_writer.Trouble().empty()) return {};
        return Failure(kLocalFile, "The archive cannot be written to " + Clean(m_path, 4096) +
                                       ": " + m_writer.Trouble() + ".");
    }

private:
    bool IsWithinLimits() { return m_run.limits.Progress({m_path, m_writer.Bytes(), 0}); }

    Context& m_run;
    const std::string m_path;
    Archives::Writer m_writer;
};

std::string ErrorsText(const std::vector<Tree::Unread>& trouble) {
    std::string text = "[";
    const char* between = "\n";
    for (const Tree::Unread& one : trouble) {
        text += between + JsonText(json::object{
                              {"path", TextValue(one.path)},
                              {"status", one.httpCode == 0 ? json::value(nullptr) : one.httpCode},
                              {"reason", TextOrNull(one.reason)}});
        between = ",\n";
    }
    return text + "\n]\n";
}

// One BMC, read by GETs over one connection.
class TreeRun {
public:
    explicit TreeRun(Context& run)
        : m_run(run),
          m_session(run, kTreeService),
          m_source({[this](const std::string& path) { return m_session.Get(path); },
                    [this](std::chrono::seconds pause) { Wait(pause); }}) {}

    Outcome Read(const std::string& name) {
        m_run.Begin("read");
        Outcome outcome = m_session.Open();
        if (outcome.Ok()) outcome = Walk(m_run.folder.WorkPath(name));
        if (!m_run.interrupt.Raised()) m_run.farewell.Pay(kSessionSeconds);
        return m_run.End(outcome.code, outcome, Archives::TreeWords(m_counts));
    }

    // What is missing of the tree; no failure where nothing is.
    Outcome Missing() const {
        if (m_counts.limits.empty()) return {};
        return Failure(kIncomplete,
                       "What was read of the BMC's Redfish tree is kept, and not all of it: " +
                           m_counts.limits.front());
    }

private:
    Outcome Walk(const std::string& path) {
        const std::string begun = UtcNow();
        ArchiveSink sink(m_run, path);
        Tree::Walker walker(m_source, sink, {EndpointOf(m_run.options), m_session.Address()}, {},
                            [this] { return m_run.interrupt.Raised(); });
        walker.OnProgress([this, &walker] { Tell(walker); });
        walker.Run();
        m_counts = walker.Counts();
        if (!m_source.Ended().empty()) m_counts.limits.push_back(m_source.Ended());
        m_run.report.SetPart(std::make_shared<TreePart>(m_counts));
        if (!sink.Trouble().Ok()) return sink.Trouble();
        if (IsNothing()) return Nothing(walker.Trouble());
        const bool whole = sink.Take(Archives::kTreeErrors, ErrorsText(walker.Trouble())) &&
                           sink.Take(Archives::kTreeManifest, Manifest(begun)) && sink.Close();
        return whole ? Outcome{} : sink.Trouble();
    }

    std::string Manifest(const std::string& begun) {
        BmcFacts facts = m_run.report.Now().facts;
        facts.notes.clear();  // they are for the operator, not for whom the archive is sent to
        return Archives::ManifestText(
            {KEMFFDC_VERSION, begun, UtcNow(), m_run.options.host, facts, m_counts});
    }

    // The service root alone, which the preflight has seen already.
    bool IsNothing() const {
        return m_counts.resources <= 1 && (m_counts.unread > 0 || !m_counts.limits.empty());
    }

    Outcome Nothing(const std::vector<Tree::Unread>& trouble) const {
        std::string why = m_source.Ended();
        if (why.empty() && !trouble.empty()) {
            const Tree::Unread& first = trouble.front();
            why = first.path + ": " +
                  (first.httpCode == 0 ? "" : "HTTP " + std::to_string(first.httpCode) + " ") +
                  first.reason;
        }
        return Failure(kDownloadFailed,
                       m_source.Ended().empty() ? Cause::kBmcFault : Cause::kConnectionLost,
                       "Nothing could be read of the BMC's Redfish tree (" + why + ").");
    }

    void Tell(const Tree::Walker& walker) {
        const Clock::Monotonic now = Clock::Now();
        if (now < m_told + kTellPause) return;
        m_told = now;
        m_run.progress.Work({}, std::to_string(walker.Counts().resources) + " resources, " +
                                    std::to_string(walker.Waiting()) + " known to come");
    }

    void Wait(std::chrono::seconds pause) const {
        m_run.progress.State("BMC is busy");
        const Clock::Monotonic end = Clock::Now() + pause;
        while (!m_run.interrupt.Raised() && Clock::Now() < end) {
            Clock::SleepFor(kWakePause);
        }
        m_run.progress.State("");
    }

    Context& m_run;
    Session m_session;
    Tree::PatientSource m_source;
    TreeCounts m_counts;
    Clock::Monotonic m_told = Clock::Now();
};

}  // namespace

Outcome CollectTree(Context& run) {
    const std::string name = run.NameFor(kName);
    TreeRun tree(run);
    Outcome outcome = tree.Read(name);
    if (outcome.Ok()) outcome = StoreArchive(run, name, "");
    return outcome.Ok() ? tree.Missing() : outcome;
}

}  // namespace Kemffdc::Redfish
