// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/ReportPage.h"

#include <openssl/sha.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cctype>
#include <filesystem>
#include <map>

#include "cli/Utc.h"
#include "cli/fleet/Html.h"
#include "cli/fleet/Meaning.h"
#include "cli/fleet/PageParts.h"
#include "cli/fleet/Timeline.h"
#include "cli/report/Json.h"
#include "cli/terminal/Text.h"
#include "shared/Base64.h"
#include "shared/Percent.h"

namespace Kemffdc::Fleet {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;

using pugi::xml_document;
using pugi::xml_node;

constexpr std::size_t kMostReasons = 2;

// --- words ------------------------------------------------------------------------------------

// "2026-01-31 23:59:58".
std::string Moment(double at) {
    std::string text = UtcText(static_cast<std::time_t>(at));
    text[10] = ' ';
    text.pop_back();
    return text;
}

std::string Counted(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// "Wrong password".
std::string TitleOf(const std::string& outcome) {
    std::string title = MeaningOf(outcome).title;
    if (!title.empty()) title[0] = static_cast<char>(std::toupper(title[0]));
    return title;
}

// What the page tells apart by colour and symbol.
std::string KindOf(const HostResult& host) {
    if (!History::HasEnded(host.state)) return "open";
    if (host.Succeeded()) return "done";
    return host.state == History::HostState::kFailed ? "failed" : "stopped";
}

std::string Joined(const std::vector<std::string>& texts, const char* between) {
    std::string joined;
    for (const std::string& text : texts) {
        if (text.empty()) continue;
        joined += (joined.empty() ? "" : between) + text;
    }
    return joined;
}

// A path in a URL that starts at the page.
std::string LinkTo(const std::string& path, const std::string& folder) {
    const fs::path relative = fs::path(path).lexically_relative(folder);
    return shared::PercentEncoded(relative.empty() ? path : relative.string(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '/' || c == '.' ||
               c == '-' || c == '_' || c == '~';
    });
}

// --- head and totals --------------------------------------------------------------------------

std::string RunName(const Results& results) {
    if (results.runs.size() > 1) return std::to_string(results.runs.size()) + " fleet runs";
    const RunResult& run = results.runs.front();
    return run.fleet == 0 ? "Fleet run" : "Fleet run " + std::to_string(run.fleet);
}

bool IsCheck(const Results& results) {
    return std::all_of(results.runs.begin(), results.runs.end(),
                       [](const RunResult& run) { return run.command == "check"; });
}

std::string Sentence(const Results& results, const Totals& totals) {
    const std::string what = IsCheck(results) ? " can be used" : " collected";
    if (totals.done == totals.hosts) {
        return totals.hosts == 1 ? "The host" + what
                                 : "All " + std::to_string(totals.hosts) + " hosts" + what;
    }
    return std::to_string(totals.done) + " of " + Counted(totals.hosts, "host", "hosts") + what;
}

void AddFact(xml_node facts, const std::string& label, const std::string& value) {
    if (value.empty()) return;
    const xml_node fact = Add(facts, "span");
    AddText(fact, label + " ");
    AddWith(fact, "b", value);
}

std::string Head(const Results& results, const Totals& totals) {
    xml_document piece;
    AddWith(piece, "h1", Sentence(results, totals));
    const xml_node facts = Add(piece, "p", "facts");
    AddWith(facts, "span", RunName(results));
    if (results.runs.size() == 1) {
        const RunResult& run = results.runs.front();
        AddFact(facts, "on", run.station);
        AddFact(facts, "inventory", run.inventory);
        AddFact(facts, "share", run.shard);
        AddFact(facts, "in", run.folder);
    }
    if (results.Started() > 0) AddFact(facts, "began", Moment(results.Started()) + " UTC");
    return CodeOf(piece);
}

void AddFigure(xml_node figures, const std::string& value, const char* label, const char* icon = "",
               const std::string& unit = "") {
    const xml_node figure = Add(figures, "div");
    AddWith(figure, "dt", label);
    const xml_node shown = Add(figure, "dd");
    if (*icon != '\0') AddIcon(shown, icon);
    AddText(shown, value);
    if (!unit.empty()) AddWith(shown, "small", " " + unit);
}

void AddBar(xml_node parent, const Totals& totals) {
    const xml_node bar = Add(parent, "svg", "bar");
    Set(bar, "viewBox", "0 0 1000 10");
    Set(bar, "preserveAspectRatio", "none");
    Set(bar, "aria-hidden", "true");
    double at = 0;
    const std::pair<const char*, std::size_t> parts[] = {{"done", totals.done},
                                                         {"failed", totals.failed},
                                                         {"stopped", totals.stopped},
                                                         {"open", totals.open}};
    for (const auto& [kind, count] : parts) {
        if (count == 0) continue;
        const double width = 1000 * static_cast<double>(count) / static_cast<double>(totals.hosts);
        const xml_node part = Add(bar, "rect", kind);
        Set(part, "x", at);
        Set(part, "width", width);
        Set(part, "height", 10.0);
        at += width;
    }
}

std::string TotalsPiece(const Results& results, const Totals& totals) {
    xml_document piece;
    if (totals.hosts > 0) AddBar(piece, totals);
    const xml_node figures = Add(piece, "dl", "figures");
    AddFigure(figures, std::to_string(totals.done), "done", "done");
    AddFigure(figures, std::to_string(totals.failed), "failed", "failed");
    if (totals.stopped > 0) {
        AddFigure(figures, std::to_string(totals.stopped), "stopped", "stopped");
    }
    if (totals.open > 0) AddFigure(figures, std::to_string(totals.open), "not ended", "open");
    if (!IsCheck(results)) {
        const std::string bytes = HumanBytes(totals.bytes);
        const std::size_t blank = bytes.find(' ');
        AddFigure(figures, bytes.substr(0, blank),
                  totals.archives == 1
                      ? "in 1 archive"
                      : ("in " + std::to_string(totals.archives) + " archives").c_str(),
                  "", bytes.substr(blank + 1));
    }
    AddFigure(figures, DurationText(results.Ended() - results.Started()), "whole run");
    if (totals.done > 1) {
        AddFigure(figures, DurationText(totals.median), "median per host");
        AddFigure(figures, DurationText(totals.slowest), "slowest host");
    }
    return CodeOf(piece);
}

std::string Notices(const Results& results) {
    xml_document piece;
    for (const RunResult& run : results.runs) {
        if (run.ended > 0) continue;
        const std::string resume = run.fleet == 0 ? "" : " " + std::to_string(run.fleet);
        AddWith(piece, "p",
                run.live ? "This run is at work: the page shows how it stood at " +
                               Moment(results.written) + " UTC."
                         : "This run has ended without a word. kemffdc fleet resume" + resume +
                               " goes on with it.",
                "notice");
    }
    for (const std::string& note : results.notes) AddWith(piece, "p", note, "notice");
    return CodeOf(piece);
}

// --- stations, failures -----------------------------------------------------------------------

xml_node AddColumns(xml_node table, const std::vector<std::pair<const char*, const char*>>& heads) {
    const xml_node row = Add(Add(table, "thead"), "tr");
    for (const auto& [title, classes] : heads) {
        Set(AddWith(row, "th", title, classes), "scope", "col");
    }
    return Add(table, "tbody");
}

std::string Stations(const Results& results) {
    if (results.runs.size() < 2) return "";
    xml_document piece;
    const xml_node section = Add(piece, "section");
    Set(section, "aria-labelledby", "stations-title");
    Set(AddWith(section, "h2", "Stations"), "id", "stations-title");
    const xml_node region = Add(section, "div", "scroll");
    const xml_node body = AddColumns(Add(region, "table"), {{"Station", ""},
                                                            {"Run", "number"},
                                                            {"Share", ""},
                                                            {"Began (UTC)", ""},
                                                            {"Took", "number"},
                                                            {"Done", "number"},
                                                            {"Hosts", "number"},
                                                            {"Folder", ""}});
    for (std::size_t i = 0; i < results.runs.size(); ++i) {
        const RunResult& run = results.runs[i];
        const auto ofThis = [i](const HostResult& host) { return host.run == i; };
        const auto done = [i](const HostResult& host) { return host.run == i && host.Succeeded(); };
        const auto& hosts = results.hosts;
        const xml_node row = Add(body, "tr");
        Set(AddWith(row, "th", run.station), "scope", "row");
        AddWith(row, "td", run.fleet == 0 ? "" : std::to_string(run.fleet), "number");
        AddWith(row, "td", run.shard);
        AddWith(row, "td", run.started > 0 ? Moment(run.started) : "");
        AddWith(row, "td", run.ended > 0 ? DurationText(run.ended - run.started) : "", "number");
        AddWith(row, "td", std::to_string(std::count_if(hosts.begin(), hosts.end(), done)),
                "number");
        AddWith(row, "td", std::to_string(std::count_if(hosts.begin(), hosts.end(), ofThis)),
                "number");
        AddWith(row, "td", run.folder);
    }
    return CodeOf(piece);
}

std::string FailuresPiece(const Results& results) {
    const std::vector<Failures> groups = FailuresOf(results);
    if (groups.empty()) return "";
    xml_document piece;
    const xml_node section = Add(piece, "section");
    Set(section, "aria-labelledby", "failures-title");
    Set(AddWith(section, "h2", "What to do"), "id", "failures-title");
    const xml_node list = Add(section, "ol", "failures");
    for (const Failures& group : groups) {
        const xml_node item = Add(list, "li");
        Set(item, "data-outcome", group.outcome);
        AddWith(item, "p", std::to_string(group.hosts.size()), "count");
        const xml_node title = Add(item, "h3");
        AddIcon(title, KindOf(results.hosts[group.hosts.front()]));
        AddText(title, TitleOf(group.outcome));
        AddWith(item, "p", FoldedNames(results, group.hosts), "names mono");
        const std::string advice = MeaningOf(group.outcome).advice;
        if (!advice.empty()) AddWith(item, "p", advice, "advice");
        for (std::size_t i = 0; i < std::min(group.reasons.size(), kMostReasons); ++i) {
            AddWith(item, "p", group.reasons[i], "said");
        }
        if (group.reasons.size() > kMostReasons) {
            AddWith(
                item, "p",
                "and " +
                    Counted(group.reasons.size() - kMostReasons, "other reason", "other reasons") +
                    ", in the table",
                "said");
        }
    }
    return CodeOf(piece);
}

// --- the table --------------------------------------------------------------------------------

// What the table leaves out where no host has it.
struct Columns {
    bool station = false;
    bool group = false;
    bool tries = false;
    bool files = false;
};

Columns ColumnsOf(const Results& results) {
    Columns columns;
    columns.station = results.runs.size() > 1;
    for (const HostResult& host : results.hosts) {
        columns.group = columns.group || !host.group.empty();
        columns.tries = columns.tries || host.attempts > 1;
        columns.files = columns.files || !host.archive.empty() || !host.exportUri.empty();
    }
    return columns;
}

void AddNumber(xml_node row, const std::string& text, double key) {
    const xml_node cell = AddWith(row, "td", text, "number");
    Set(cell, "data-sort", text.empty() ? "-1" : Tenths(key));
}

void AddResult(xml_node row, const HostResult& host) {
    const xml_node cell = Add(row, "td", "result");
    AddIcon(cell, KindOf(host));
    AddText(cell, TitleOf(host.outcome));
    if (!host.reason.empty()) AddWith(cell, "small", host.reason);
}

void AddMachine(xml_node row, const History::Bmc& bmc) {
    AddWith(row, "td", Joined({bmc.vendor, bmc.model}, " "), "machine");
    AddWith(row, "td", bmc.serial, "machine");
    AddWith(row, "td", bmc.firmware, "machine");
}

void AddLink(xml_node cell, const std::string& path, const std::string& folder, const char* text,
             const std::string& name) {
    const xml_node link = AddWith(cell, "a", text);
    Set(link, "href", LinkTo(path, folder));
    AddWith(link, "span", " of " + name, "unseen");
}

void AddFiles(xml_node row, const HostResult& host, const std::string& folder) {
    const xml_node cell = Add(row, "td", "files");
    if (!host.removed.empty()) {
        AddWith(cell, "span", "removed " + host.removed.substr(0, 10), "quiet");
    } else if (!host.exportUri.empty()) {
        Set(AddWith(cell, "span", "in the file store", "quiet"), "title", host.exportUri);
    } else if (!host.archive.empty()) {
        AddLink(cell, host.archive, folder, "archive", host.name);
        if (!host.record.empty()) AddLink(cell, host.record, folder, "record", host.name);
    }
}

void AddHost(xml_node body, const Results& results, const HostResult& host, const Columns& columns,
             const std::string& folder) {
    const xml_node row = Add(body, "tr");
    Set(row, "data-state", KindOf(host));
    Set(row, "data-outcome", host.outcome);
    if (!host.group.empty()) Set(row, "data-group", host.group);
    const xml_node name = AddWith(row, "th", host.name);
    Set(name, "scope", "row");
    if (host.host != host.name) AddWith(name, "small", host.host);
    AddResult(row, host);
    if (columns.station) AddWith(row, "td", results.runs[host.run].station);
    if (columns.group) AddWith(row, "td", host.group);
    const xml_node via = AddWith(row, "td", host.channel);
    if (!host.operation.empty()) AddWith(via, "small", host.operation);
    if (columns.tries) AddNumber(row, std::to_string(host.attempts), host.attempts);
    const double seconds = host.Seconds();
    AddNumber(row, seconds > 0 ? DurationText(seconds) : "", seconds);
    if (columns.files) {
        AddNumber(row, host.archive.empty() ? "" : HumanBytes(host.size),
                  static_cast<double>(host.size));
    }
    AddMachine(row, host.bmc);
    if (columns.files) AddFiles(row, host, folder);
}

std::string Table(const Results& results, const std::string& folder) {
    xml_document piece;
    const Columns columns = ColumnsOf(results);
    std::vector<std::pair<const char*, const char*>> heads{{"Host", ""}, {"Result", ""}};
    if (columns.station) heads.emplace_back("Station", "");
    if (columns.group) heads.emplace_back("Group", "");
    heads.emplace_back("Via", "");
    if (columns.tries) heads.emplace_back("Tries", "number");
    heads.emplace_back("Time", "number");
    if (columns.files) heads.emplace_back("Size", "number");
    for (const char* head : {"Machine", "Serial number", "Firmware"}) heads.emplace_back(head, "");
    if (columns.files) heads.emplace_back("Files", "files");
    const xml_node table = Add(piece, "table");
    Set(table, "id", "table");
    AddWith(table, "caption", "Every host of the run", "unseen");
    const xml_node body = AddColumns(table, heads);
    for (const HostResult& host : results.hosts) AddHost(body, results, host, columns, folder);
    return CodeOf(piece);
}

// --- data for the script ----------------------------------------------------------------------

json::object GeometryOf(std::size_t hosts) {
    const TimelineLayout layout(hosts);
    return {{"width", layout.width}, {"top", layout.top},       {"row", layout.row},
            {"gap", layout.gap},     {"column", layout.column}, {"columns", layout.columns},
            {"lines", layout.lines}};
}

// What the pointer is told over a line of the timeline.
std::string TipOf(const HostResult& host) {
    const double seconds = host.Seconds();
    return Joined(
        {host.name, MeaningOf(host.outcome).title, seconds > 0 ? DurationText(seconds) : ""}, ", ");
}

std::string Data(const Results& results) {
    json::array hosts;
    json::object titles;
    for (const HostResult& host : results.hosts) {
        hosts.push_back(TextValue(TipOf(host)));
        titles[ValidUtf8(host.outcome)] = TextValue(MeaningOf(host.outcome).title);
    }
    std::string text = JsonText(json::object{
        {"timeline", GeometryOf(results.hosts.size())},
        {"states",
         {{"done", "done"}, {"failed", "failed"}, {"stopped", "stopped"}, {"open", "not ended"}}},
        {"titles", std::move(titles)},
        {"hosts", std::move(hosts)}});
    // An element of script ends with the first "</script", wherever that stands.
    for (std::size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at)) {
        text.replace(at, 1, "\\u003c");
    }
    return text;
}

// --- the page ---------------------------------------------------------------------------------

std::string Sum(const std::string& text) {
    std::string sum(SHA256_DIGEST_LENGTH, '\0');
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(),
           reinterpret_cast<unsigned char*>(sum.data()));
    return shared::ToBase64(sum);
}

std::string Foot(const Results& results) {
    return Escaped("Written " + Moment(results.written) +
                   " UTC by kemffdc " KEMFFDC_VERSION
                   ". Times are minutes and seconds; a host's time leaves out where it stood in "
                   "the queue. report.json and report.csv say the same for programs.");
}

std::string TimelinePiece(const Results& results) {
    xml_document piece;
    AddTimeline(piece, results);
    return CodeOf(piece);
}

// Fills each {{place}} of the frame; what is filled in is not looked at again.
std::string Filled(const std::string& frame, const std::map<std::string, std::string>& pieces) {
    std::string page;
    std::size_t at = 0;
    for (std::size_t open = frame.find("{{"); open != std::string::npos;
         open = frame.find("{{", at)) {
        const std::size_t close = frame.find("}}", open);
        page += frame.substr(at, open - at) + pieces.at(frame.substr(open + 2, close - open - 2));
        at = close + 2;
    }
    return page + frame.substr(at);
}

}  // namespace

std::string ReportPage(const Results& results, const std::string& folder) {
    const Totals totals = TotalsOf(results);
    return Filled(kPageHtml,
                  {{"style-sum", Sum(kPageCss)},
                   {"script-sum", Sum(kPageJs)},
                   {"version", KEMFFDC_VERSION},
                   {"title", Escaped(RunName(results) + ": " + Sentence(results, totals))},
                   {"style", kPageCss},
                   {"script", kPageJs},
                   {"head", Head(results, totals)},
                   {"notices", Notices(results)},
                   {"totals", TotalsPiece(results, totals)},
                   {"stations", Stations(results)},
                   {"failures", FailuresPiece(results)},
                   {"timeline", TimelinePiece(results)},
                   {"table", Table(results, folder)},
                   {"foot", Foot(results)},
                   {"data", Data(results)}});
}

}  // namespace Kemffdc::Fleet
