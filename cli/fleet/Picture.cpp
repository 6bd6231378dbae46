// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Picture.h"

#include <algorithm>
#include <array>
#include <utility>

#include "cli/fleet/Estimate.h"
#include "cli/fleet/Meaning.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

using History::HostState;

constexpr std::size_t kWidestBar = 60;
constexpr std::size_t kNarrowestBar = 10;
constexpr std::size_t kMostHosts = 10;  // of the table
constexpr std::size_t kStateColumns = 12;
constexpr std::size_t kTimeColumns = 7;  // "1:02:03"
constexpr std::size_t kRoomy = 60;       // columns from which on the table has wide gaps

// In the order in which they are counted.
constexpr std::array<HostState, 11> kCounted{
    HostState::kDone,     HostState::kFailed,    HostState::kStopped,   HostState::kTransferring,
    HostState::kWaiting,  HostState::kGathering, HostState::kExporting, HostState::kReached,
    HostState::kStarting, HostState::kPausing,   HostState::kQueued};

// What an operator tells apart.
// No `default:`, so that the compiler misses a state.
const char* WordOf(HostState state) {
    switch (state) {
        case HostState::kStarting:
        case HostState::kReached:
        case HostState::kExporting:
            return "connecting";
        case HostState::kQueued:
        case HostState::kGathering:
        case HostState::kWaiting:
        case HostState::kTransferring:
        case HostState::kPausing:
        case HostState::kDone:
        case HostState::kFailed:
        case HostState::kStopped:
            break;
    }
    return NameOf(state);
}

// "120 done", "3 failed" ...: of those words that some host has.
std::vector<std::string> CountTexts(const Scene& scene) {
    std::array<std::size_t, kCounted.size()> hosts{};  // by state
    for (const SceneHost& host : scene.hosts) ++hosts.at(static_cast<std::size_t>(host.state));
    std::vector<std::pair<std::string, std::size_t>> words;
    for (const HostState state : kCounted) {
        const std::string word = WordOf(state);
        if (words.empty() || words.back().first != word) words.emplace_back(word, 0);
        words.back().second += hosts.at(static_cast<std::size_t>(state));
    }
    std::vector<std::string> texts;
    for (const auto& [word, count] : words) {
        if (count > 0) texts.push_back(std::to_string(count) + " " + word);
    }
    return texts;
}

std::size_t CountEnded(const Scene& scene) {
    return static_cast<std::size_t>(
        std::count_if(scene.hosts.begin(), scene.hosts.end(),
                      [](const SceneHost& host) { return HasEnded(host.state); }));
}

// Phrases with commas between them, on as few lines as they need.
std::vector<std::string> Flow(const std::vector<std::string>& phrases, std::size_t room) {
    std::vector<std::string> lines;
    for (const std::string& phrase : phrases) {
        const bool joins = !lines.empty() && ColumnsOf(lines.back()) + 2 + ColumnsOf(phrase) < room;
        if (joins) {
            lines.back() += ", " + phrase;
        } else {
            if (!lines.empty()) lines.back() += ",";
            lines.push_back(phrase);
        }
    }
    for (std::string& line : lines) line = CutToColumns(line, room);
    return lines;
}

std::vector<std::string> HeadingTexts(const Scene& scene) {
    return {
        "Run " + std::to_string(scene.fleet) + " (" + scene.command + ")",
        std::to_string(CountEnded(scene)) + " of " + std::to_string(scene.hosts.size()) + " ended",
        ElapsedText(scene), TimeLeftText(TimeLeft(scene))};
}

// "4.2 GiB, 45.2 MiB/s"; empty before anything has come.
std::string TransferText(const Scene& scene, Rate bytesPerSecond) {
    const std::uint64_t bytes = BytesOf(scene);
    if (bytes == 0) return "";
    const std::string rate = bytesPerSecond ? ", " + HumanBytes(*bytesPerSecond) + "/s" : "";
    return HumanBytes(bytes) + rate;
}

std::string Percent(std::size_t part, std::size_t whole) {
    return std::to_string(whole == 0 ? 100 : part * 100 / whole) + " %";
}

// "[####------]  30 %  4.2 GiB, 45.2 MiB/s"; without the bar where there is no room for it.
std::string BarLine(const Scene& scene, Rate bytesPerSecond, std::size_t room) {
    const std::size_t ended = CountEnded(scene);
    const std::string transfer = TransferText(scene, bytesPerSecond);
    std::string text = Percent(ended, scene.hosts.size());
    if (!transfer.empty()) text += ", " + transfer;
    const std::size_t taken = text.size() + 4;
    if (room < taken + kNarrowestBar) return CutToColumns(text, room);
    const std::size_t width = std::min(kWidestBar, room - taken);
    const std::size_t full = scene.hosts.empty() ? width : width * ended / scene.hosts.size();
    return "[" + std::string(full, '#') + std::string(width - full, '-') + "]  " + text;
}

std::string Right(const std::string& text, std::size_t columns) {
    return std::string(columns - std::min(columns, text.size()), ' ') + text;
}

// How far a host is with what it is at.
std::string DetailOf(const SceneHost& host) {
    if (host.state == HostState::kPausing) return Clean(host.reason);
    std::string text;
    if (host.state == HostState::kTransferring) {
        if (host.expected > 0) {
            text = Right(Percent(std::min(host.bytes, host.expected), host.expected), 5) + "  ";
        }
        text += HumanBytes(host.bytes);
        return host.expected > 0 ? text + " of " + HumanBytes(host.expected) : text;
    }
    if (host.percent) text = Right(std::to_string(*host.percent) + " %", 5);
    if (!host.message.empty()) text += (text.empty() ? "" : "  ") + Clean(host.message);
    return text;
}

// Those at work, the longest first.
std::vector<const SceneHost*> Slowest(const Scene& scene, std::size_t most) {
    std::vector<const SceneHost*> hosts;
    for (const SceneHost& host : scene.hosts) {
        const bool begun = host.begun != WallTime() && host.state != HostState::kQueued;
        if (begun && !HasEnded(host.state)) hosts.push_back(&host);
    }
    std::stable_sort(hosts.begin(), hosts.end(),
                     [](const SceneHost* a, const SceneHost* b) { return a->begun < b->begun; });
    if (hosts.size() > most) hosts.resize(most);
    return hosts;
}

std::string TimeText(WallTime from, WallTime to) {
    return Elapsed(std::chrono::duration_cast<std::chrono::milliseconds>(
        std::max(to - from, WallTime::duration(0))));
}

void AddSlowest(const Scene& scene, std::size_t most, std::size_t room,
                std::vector<std::string>& lines) {
    const std::vector<const SceneHost*> hosts = Slowest(scene, most);
    std::size_t names = 0;
    for (const SceneHost* const host : hosts) {
        names = std::max(names, ColumnsOf(Clean(host->name)));
    }
    names = std::min(names, room / 3);
    const std::string gap = room < kRoomy ? " " : "  ";
    for (const SceneHost* const host : hosts) {
        std::string line = FitToColumns(Clean(host->name), names) + gap;
        line += FitToColumns(WordOf(host->state), kStateColumns) + gap;
        line += Right(TimeText(host->begun, scene.now), kTimeColumns) + gap + DetailOf(*host);
        line = CutToColumns(line, room);
        line.erase(line.find_last_not_of(' ') + 1);
        lines.push_back(line);
    }
}

}  // namespace

std::vector<std::string> Table(const Scene& scene, Rate bytesPerSecond, TerminalSize size) {
    // The last column stays free: some terminals wrap when it is written.
    const auto room = static_cast<std::size_t>(std::max(size.columns - 1, 1));
    const auto height = static_cast<std::size_t>(std::max(size.rows - 2, 1));
    std::vector<std::string> lines = Flow(HeadingTexts(scene), room);
    lines.push_back(BarLine(scene, bytesPerSecond, room));
    for (const std::string& line : Flow(CountTexts(scene), room)) lines.push_back(line);
    // Half of what is left is for the failures above.
    if (lines.size() < height) {
        AddSlowest(scene, std::min(kMostHosts, (height - lines.size()) / 2), room, lines);
    }
    if (lines.size() > height) lines.resize(height);
    return lines;
}

std::string StateLine(const Scene& scene, Rate bytesPerSecond) {
    std::string line = ElapsedText(scene) + "  " + std::to_string(scene.hosts.size()) + " hosts: ";
    const char* between = "";
    for (const std::string& text : CountTexts(scene)) {
        line += between + text;
        between = ", ";
    }
    const std::string transfer = TransferText(scene, bytesPerSecond);
    if (!transfer.empty()) line += "; " + transfer;
    const bool works = scene.live && CountEnded(scene) < scene.hosts.size();
    return works ? line + "; " + TimeLeftText(TimeLeft(scene)) : line;
}

std::string FailureLine(const Scene& scene, const SceneHost& host) {
    const std::string title = host.outcome.empty() ? "failed" : MeaningOf(host.outcome).title;
    const std::string line = ElapsedText(scene) + "  " + Clean(host.name) + ": " + title + ".";
    return host.reason.empty() ? line : line + " " + Clean(host.reason, 1000);
}

std::string ElapsedText(const Scene& scene) { return TimeText(scene.begun, scene.now); }

std::size_t CountDone(const Scene& scene) {
    return static_cast<std::size_t>(
        std::count_if(scene.hosts.begin(), scene.hosts.end(),
                      [](const SceneHost& host) { return host.state == HostState::kDone; }));
}

std::uint64_t BytesOf(const Scene& scene) {
    std::uint64_t bytes = 0;
    for (const SceneHost& host : scene.hosts) bytes += host.bytes;
    return bytes;
}

}  // namespace Kemffdc::Fleet
