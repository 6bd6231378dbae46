// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Metrics.h"

#include <algorithm>
#include <boost/json.hpp>
#include <functional>
#include <utility>
#include <vector>

#include "cli/Utc.h"
#include "cli/fleet/Collections.h"
#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

using Labels = std::vector<std::pair<const char*, std::string>>;

std::string EscapedLabel(const std::string& text) {
    std::string escaped;
    for (const char c : ValidUtf8(text)) {
        if (c == '\\' || c == '"') escaped += '\\';
        escaped += c == '\n' ? "\\n" : std::string(1, c);
    }
    return escaped;
}

// Metrics, one after the other: the samples of one stand together behind its description.
class MetricsWriter {
public:
    explicit MetricsWriter(std::string inventory) : m_inventory(std::move(inventory)) {}

    void Begin(const char* name, const char* help) {
        m_name = std::string("kemffdc_fleet_") + name;
        m_text += "# HELP " + m_name + " " + help + "\n# TYPE " + m_name + " gauge\n";
    }

    void Sample(double value, const Labels& labels = {}) {
        m_text += m_name + "{inventory=\"" + EscapedLabel(m_inventory) + "\"";
        for (const auto& [label, text] : labels) {
            m_text += std::string(",") + label + "=\"" + EscapedLabel(text) + "\"";
        }
        m_text += "} " + JsonText(value) + "\n";
    }

    // A metric of the whole run.
    void Single(const char* name, const char* help, double value) {
        Begin(name, help);
        Sample(value);
    }

    const std::string& Text() const { return m_text; }

private:
    const std::string m_inventory;
    std::string m_name;
    std::string m_text;
};

void AddRun(const Results& results, MetricsWriter& writer) {
    const Totals totals = TotalsOf(results);
    writer.Begin("hosts", "Hosts of the latest fleet run by their outcome.");
    std::map<std::string, double> outcomes;
    for (const HostResult& host : results.hosts) ++outcomes[host.outcome];
    for (const auto& [outcome, count] : outcomes) writer.Sample(count, {{"outcome", outcome}});
    writer.Single("hosts_done", "Hosts of the latest fleet run that succeeded.",
                  static_cast<double>(totals.done));
    writer.Single("archive_bytes", "Size of all archives of the latest fleet run.",
                  static_cast<double>(totals.bytes));
    writer.Single("duration_seconds", "How long the latest fleet run took.",
                  results.Ended() - results.Started());
    writer.Single("started_timestamp_seconds", "When the latest fleet run began.",
                  results.Started());
    writer.Single("ended_timestamp_seconds", "When the latest fleet run ended.", results.Ended());
    writer.Single("exit_code", "Exit code of the latest fleet run: 0 all, 20 some, 21 none.",
                  results.runs.front().exitCode);
}

void AddHosts(const Results& results, MetricsWriter& writer, const char* name, const char* help,
              const std::function<double(const HostResult& host)>& value) {
    writer.Begin(name, help);
    for (const HostResult& host : results.hosts) {
        const double sample = value(host);
        if (sample >= 0) writer.Sample(sample, {{"host", host.name}, {"group", host.group}});
    }
}

}  // namespace

std::map<std::string, double> NewestArchives(const History::FleetJournal& journal) {
    std::map<std::string, double> newest;
    for (const Collection& collection : CollectionsOf(journal)) {
        if (!collection.IsGood()) continue;
        double& at = newest[collection.key];
        at = std::max(at, static_cast<double>(ReadUtc(collection.files.front().endedAt)));
    }
    return newest;
}

std::string MetricsText(const Results& results, const std::map<std::string, double>& newest) {
    MetricsWriter writer(results.runs.front().inventory);
    AddRun(results, writer);
    const auto newestOf = [&newest](const HostResult& host) {
        const auto found = newest.find(HostKey(host.name, host.host));
        return found == newest.end() ? -1 : found->second;
    };
    AddHosts(results, writer, "host_success", "Whether the host succeeded in the latest run.",
             [](const HostResult& host) { return host.Succeeded() ? 1 : 0; });
    AddHosts(results, writer, "host_seconds", "Time that the latest run spent on the host.",
             [](const HostResult& host) { return host.Seconds(); });
    AddHosts(results, writer, "host_archive_bytes", "Size of the host's archive of the latest run.",
             [](const HostResult& host) -> double {
                 return host.HasArchive() ? static_cast<double>(host.size) : -1;
             });
    AddHosts(results, writer, "host_newest_archive_timestamp_seconds",
             "When the newest good archive of the host came, of any run.", newestOf);
    AddHosts(results, writer, "host_newest_archive_age_seconds",
             "Age of the newest good archive of the host when this file was written.",
             [&](const HostResult& host) {
                 const double at = newestOf(host);
                 return at < 0 ? -1 : std::max(0.0, results.written - at);
             });
    return writer.Text();
}

}  // namespace Kemffdc::Fleet
