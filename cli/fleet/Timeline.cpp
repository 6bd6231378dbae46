// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Timeline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include "cli/fleet/Html.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

using History::HostState;

constexpr double kShortestBreak = 600;    // seconds
constexpr double kBreakShare = 0.4;       // of all the time; a stretch above it is drawn short
constexpr double kBreakLength = 0.03;     // of the axis
constexpr double kLetter = 6.4;           // width of one in a name, about
constexpr std::size_t kLongestName = 20;  // letters

double RoundedUp(double step) {
    constexpr std::array<double, 19> kSteps{1,     2,     5,     10,    15,    30,   60,
                                            120,   300,   600,   900,   1800,  3600, 7200,
                                            10800, 21600, 43200, 86400, 172800};
    const auto* const found = std::lower_bound(kSteps.begin(), kSteps.end(), step);
    return found != kSteps.end() ? *found : std::ceil(step / kSteps.back()) * kSteps.back();
}

// --- how a state is drawn ---------------------------------------------------------------------

// What the legend names. Idle ones are thin, so that colour does not stand alone.
struct Phase {
    const char* name;  // class
    const char* title;
    double thickness;  // of the line's height
};
constexpr std::array<Phase, 8> kPhases{{{"begin", "connecting", 0.6},
                                        {"gather", "gathering", 1},
                                        {"wait", "waiting for its turn", 0.3},
                                        {"transfer", "transferring", 1},
                                        {"pause", "pausing before another try", 0.3},
                                        {"failed", "failed", 1},
                                        {"lost", "", 0.16},
                                        {"stopped", "stopped", 1}}};
constexpr std::size_t kFailed = 5;
constexpr std::size_t kLost = 6;
constexpr std::size_t kStopped = 7;

// Its place in kPhases; none: nothing is drawn.
std::optional<std::size_t> PhaseOf(HostState state) {
    switch (state) {
        case HostState::kStarting:
        case HostState::kReached:
        case HostState::kExporting:
            return 0;
        case HostState::kGathering:
            return 1;
        case HostState::kWaiting:
            return 2;
        case HostState::kTransferring:
            return 3;
        case HostState::kPausing:
            return 4;
        case HostState::kQueued:
        case HostState::kDone:
        case HostState::kFailed:
        case HostState::kStopped:
            break;
    }
    return {};
}

// All lines of one phase are one path: a page with thousands of hosts stays small.
using Paths = std::array<std::string, kPhases.size()>;

void AddLine(std::string& path, double from, double to, double y) {
    path += "M" + Tenths(from) + " " + Tenths(y) + "H" + Tenths(to);
}

void DrawHost(const HostResult& host, double now, const TimeAxis& axis, double left, double y,
              double right, double mark, Paths& paths) {
    for (std::size_t i = 0; i < host.states.size(); ++i) {
        const double until = i + 1 < host.states.size() ? host.states[i + 1].at : now;
        const double from = left + axis.At(host.states[i].at);
        const double to = left + axis.At(std::max(until, host.states[i].at));
        if (const auto phase = PhaseOf(host.states[i].state)) AddLine(paths[*phase], from, to, y);
    }
    const double ended = host.Ended();
    if (ended == 0 || host.Succeeded()) return;
    const double at = left + axis.At(ended);
    const std::size_t phase = host.state == HostState::kFailed ? kFailed : kStopped;
    AddLine(paths[phase], at, std::min(at + mark, right), y);
    if (phase == kFailed) AddLine(paths[kLost], at, right, y);
}

// --- names ------------------------------------------------------------------------------------

// What all names end with, from a dot on: it would say nothing in a drawing.
std::string SharedDomain(const std::vector<HostResult>& hosts) {
    const std::string& first = hosts.front().name;
    const std::size_t dot = first.find('.');
    if (hosts.size() < 2 || dot == std::string::npos || dot == 0) return "";
    const std::string domain = first.substr(dot);
    const bool isAddress = domain.find_first_not_of(".0123456789") == std::string::npos;
    const bool shared = std::all_of(hosts.begin(), hosts.end(), [&domain](const HostResult& host) {
        return host.name.size() > domain.size() &&
               host.name.compare(host.name.size() - domain.size(), domain.size(), domain) == 0;
    });
    return shared && !isAddress ? domain : "";
}

std::vector<std::string> NamesOf(const std::vector<HostResult>& hosts) {
    const std::string domain = SharedDomain(hosts);
    std::vector<std::string> names;
    for (const HostResult& host : hosts) {
        const std::string name = host.name.substr(0, host.name.size() - domain.size());
        names.push_back(name.size() <= kLongestName ? name : CutUtf8(name, kLongestName - 1) + "…");
    }
    return names;
}

double WidthOf(const std::vector<std::string>& names) {
    std::size_t longest = 0;
    for (const std::string& name : names) longest = std::max(longest, name.size());
    return static_cast<double>(std::min(longest, kLongestName)) * kLetter + 8;
}

// --- the drawing ------------------------------------------------------------------------------

std::vector<double> TimesOf(const Results& results) {
    std::vector<double> times{results.Started(), results.Ended()};
    for (const HostResult& host : results.hosts) {
        for (const StateChange& change : host.states) times.push_back(change.at);
    }
    return times;
}

// A host is put into the queue again where its run is resumed.
std::vector<double> ResumptionsOf(const Results& results) {
    std::vector<double> times;
    for (const HostResult& host : results.hosts) {
        for (std::size_t i = 1; i < host.states.size(); ++i) {
            if (host.states[i].state == HostState::kQueued) times.push_back(host.states[i].at);
        }
    }
    return times;
}

void AddGrid(pugi::xml_node drawing, const TimelineLayout& layout, const TimeAxis& axis) {
    const double length = layout.column - layout.names;
    std::string lines;
    std::string breaks;
    for (std::size_t column = 0; column < layout.columns; ++column) {
        const double left = layout.Left(column * layout.lines) + layout.names;
        for (const TimeAxis::Tick& tick : axis.Ticks(static_cast<std::size_t>(length / 60))) {
            const double x = left + axis.At(tick.time);
            lines += "M" + Tenths(x) + " " + Tenths(layout.top - 4) + "V" + Tenths(layout.Height());
            const pugi::xml_node label = AddWith(drawing, "text", tick.label, "tick");
            Set(label, "x", x);
            Set(label, "y", layout.top - 8);
        }
        for (const TimeAxis::Break& one : axis.Breaks()) {
            breaks += "M" + Tenths(left + one.at) + " 0V" + Tenths(layout.Height());
        }
    }
    Set(Add(drawing, "path", "grid"), "d", lines);
    if (!breaks.empty()) Set(Add(drawing, "path", "break"), "d", breaks);
}

void AddNames(pugi::xml_node drawing, const TimelineLayout& layout,
              const std::vector<std::string>& names) {
    const std::size_t every = layout.NameEvery();
    for (std::size_t place = 0; place < names.size(); ++place) {
        if (place % layout.lines % every != 0) continue;
        const pugi::xml_node text = AddWith(drawing, "text", names[place], "name");
        Set(text, "x", layout.Left(place) + layout.names - 6);
        Set(text, "y",
            layout.Top(place) + std::min(layout.row, 8.0) / 2 + 3.5 +
                std::max(0.0, layout.row - 8) / 2);
    }
}

void AddKey(pugi::xml_node legend, const std::string& classes, double thickness,
            const std::string& drawn, const std::string& title) {
    const pugi::xml_node item = Add(legend, "li");
    const pugi::xml_node key = Add(item, "svg", "key");
    Set(key, "viewBox", "0 0 24 12");
    Set(key, "aria-hidden", "true");
    const pugi::xml_node line = Add(key, "path", classes);
    Set(line, "d", drawn);
    Set(line, "stroke-width", thickness);
    AddText(item, title);
}

void AddLegend(pugi::xml_node parent, const Paths& paths, const TimeAxis& axis) {
    const pugi::xml_node legend = Add(parent, "ul", "legend");
    for (std::size_t i = 0; i < kPhases.size(); ++i) {
        if (paths[i].empty() || *kPhases[i].title == '\0') continue;
        AddKey(legend, std::string("phase ") + kPhases[i].name, 10 * kPhases[i].thickness,
               "M0 6H24", kPhases[i].title);
    }
    for (const TimeAxis::Break& one : axis.Breaks()) {
        AddKey(legend, "break", 1, "M12 0V12",
               "left out: " + DurationText(one.seconds) + " until the run was resumed");
    }
}

std::string InWords(const Results& results) {
    const Totals totals = TotalsOf(results);
    return "A line for each of " + std::to_string(totals.hosts) +
           " hosts: what it was at, and when. The run took " +
           DurationText(results.Ended() - results.Started()) +
           ", half of the hosts that are done " + "no more than " + DurationText(totals.median) +
           " each. The table below says the same.";
}

}  // namespace

// --- the axis ---------------------------------------------------------------------------------

TimeAxis::TimeAxis(std::vector<double> times, const std::vector<double>& resumed, double length) {
    std::sort(times.begin(), times.end());
    const double all = std::max(times.back() - times.front(), 0.001);
    std::vector<std::pair<double, double>> quiet;
    double left = all;
    for (std::size_t i = 0; i + 1 < times.size(); ++i) {
        const double lasted = times[i + 1] - times[i];
        if (lasted < std::max(kShortestBreak, kBreakShare * all)) continue;
        if (std::find(resumed.begin(), resumed.end(), times[i + 1]) == resumed.end()) continue;
        quiet.emplace_back(times[i], times[i + 1]);
        left -= lasted;
    }
    const double drawn = length * (1 - kBreakLength * static_cast<double>(quiet.size()));
    const double scale = drawn / std::max(left, 0.001);
    double at = 0;
    double from = times.front();
    const auto add = [&](double to, bool isBreak) {
        const double end = at + (isBreak ? length * kBreakLength : (to - from) * scale);
        m_pieces.push_back({from, to, at, end, isBreak});
        at = end;
        from = to;
    };
    for (const auto& [begin, end] : quiet) {
        add(begin, false);
        add(end, true);
    }
    add(std::max(times.back(), times.front() + 0.001), false);
}

double TimeAxis::At(double time) const {
    for (const Piece& piece : m_pieces) {
        if (time > piece.to) continue;
        const double share = (time - piece.from) / std::max(piece.to - piece.from, 0.001);
        return piece.at + std::max(0.0, share) * (piece.end - piece.at);
    }
    return m_pieces.back().end;
}

std::vector<TimeAxis::Tick> TimeAxis::Ticks(std::size_t most) const {
    double drawn = 0;
    for (const Piece& piece : m_pieces) drawn += piece.isBreak ? 0 : piece.to - piece.from;
    const double step = RoundedUp(drawn / static_cast<double>(std::max<std::size_t>(most, 1)));
    const double begin = m_pieces.front().from;
    std::vector<Tick> ticks;
    for (const Piece& piece : m_pieces) {
        if (piece.isBreak) continue;
        const auto last = std::llround(std::floor((piece.to - begin) / step));
        for (auto tick = std::llround(std::ceil((piece.from - begin) / step)); tick <= last;
             ++tick) {
            const double since = static_cast<double>(tick) * step;
            ticks.push_back({begin + since, DurationText(since)});
        }
    }
    return ticks;
}

std::vector<TimeAxis::Break> TimeAxis::Breaks() const {
    std::vector<Break> breaks;
    for (const Piece& piece : m_pieces) {
        if (piece.isBreak) {
            breaks.push_back({(piece.at + piece.end) / 2, piece.to - piece.from});
        }
    }
    return breaks;
}

// --- the layout -------------------------------------------------------------------------------

TimelineLayout::TimelineLayout(std::size_t hosts) {
    struct Size {
        std::size_t hosts;  // up to so many
        std::size_t columns;
        double row;
    };
    constexpr std::array<Size, 6> kSizes{
        {{24, 1, 20}, {60, 1, 12}, {200, 2, 8}, {600, 3, 6}, {1200, 4, 3}, {2400, 4, 2}}};
    const auto* const found = std::find_if(
        kSizes.begin(), kSizes.end(), [hosts](const Size& size) { return hosts <= size.hosts; });
    columns = found != kSizes.end() ? found->columns : 4;
    row = found != kSizes.end() ? found->row : 1;
    lines = std::max<std::size_t>(1, (hosts + columns - 1) / columns);
    const auto count = static_cast<double>(columns);
    column = (width - gap * (count - 1)) / count;
}

double TimelineLayout::Left(std::size_t place) const {
    const std::size_t number = place / lines;
    return static_cast<double>(number) * (column + gap);
}

double TimelineLayout::Top(std::size_t place) const {
    return top + static_cast<double>(place % lines) * row;
}

double TimelineLayout::Height() const { return top + static_cast<double>(lines) * row; }

std::size_t TimelineLayout::NameEvery() const {
    constexpr double kLineOfText = 12;
    if (row >= kLineOfText) return 1;
    constexpr std::array<std::size_t, 6> kSteps{2, 5, 10, 20, 25, 50};
    for (const std::size_t step : kSteps) {
        if (static_cast<double>(step) * row >= 2 * kLineOfText) return step;
    }
    return kSteps.back();
}

// ----------------------------------------------------------------------------------------------

void AddTimeline(pugi::xml_node parent, const Results& results) {
    if (results.hosts.empty()) return;
    TimelineLayout layout(results.hosts.size());
    const std::vector<std::string> names = NamesOf(results.hosts);
    layout.names = WidthOf(names);
    const double length = layout.column - layout.names - 1;
    const TimeAxis axis(TimesOf(results), ResumptionsOf(results), length);

    Paths paths;
    for (std::size_t place = 0; place < results.hosts.size(); ++place) {
        const double left = layout.Left(place) + layout.names;
        DrawHost(results.hosts[place], results.Ended(), axis, left,
                 layout.Top(place) + layout.row / 2, left + length, std::min(6.0, layout.row + 2),
                 paths);
    }
    AddLegend(parent, paths, axis);
    const pugi::xml_node drawing = Add(Add(parent, "div", "chart"), "svg", "timeline");
    Set(drawing, "viewBox", "0 0 " + Tenths(layout.width) + " " + Tenths(layout.Height() + 4));
    Set(drawing, "role", "img");
    Set(drawing, "aria-label", InWords(results));
    AddGrid(drawing, layout, axis);
    AddNames(drawing, layout, names);
    const double thick = layout.row >= 4 ? layout.row * 0.7 : layout.row;
    for (std::size_t i = 0; i < kPhases.size(); ++i) {
        if (paths[i].empty()) continue;
        const pugi::xml_node path = Add(drawing, "path", std::string("phase ") + kPhases[i].name);
        Set(path, "stroke-width", std::max(0.5, thick * kPhases[i].thickness));
        Set(path, "d", paths[i]);
    }
    const pugi::xml_node over = Add(drawing, "rect", "over");
    Set(over, "width", layout.column);
    Set(over, "height", 0.0);
}

}  // namespace Kemffdc::Fleet
