// SPDX-License-Identifier: Apache-2.0
#include "cli/archive/Contents.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <regex>

namespace Kemffdc::Archives {
namespace {

constexpr std::size_t kMaxEntries = 10000;
constexpr std::size_t kMaxExcerpts = 5;
constexpr std::size_t kManifestLines = 40;
constexpr std::size_t kEventLines = 10;
constexpr std::size_t kMaxLine = 1000;
constexpr std::size_t kKept = std::size_t{64} * 1024;  // of either end of a file

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string LastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

bool IsManifest(const std::string& name) {
    return LowerCase(LastComponent(name)).compare(0, 8, "manifest") == 0;
}

bool IsEventLog(const std::string& name) {
    const std::string path = LowerCase(name);
    const std::string file = LastComponent(path);
    const std::string end = file.substr(std::min(file.rfind('.'), file.size()));
    const bool text = end == ".txt" || end == ".log" || end == ".csv";
    return text && (path.find("event") != std::string::npos || file == "sel" + end);
}

// Both ends of a file, however long it is.
class Ends {
public:
    void Add(const char* data, std::size_t size) {
        const std::size_t first = std::min(size, kKept - m_head.size());
        m_head.append(data, first);
        m_tail.append(data + first, size - first);
        if (m_tail.size() <= 2 * kKept) return;
        m_tail.erase(0, m_tail.size() - kKept);
        m_cut = true;
    }

    bool IsCut() const { return m_cut; }

    // All of it; nothing where it is cut.
    std::string Whole() const { return m_cut ? "" : m_head + m_tail; }

    // Whole lines from the beginning on, and up to the end; the same ones where nothing is cut.
    std::vector<std::string> First() const {
        std::vector<std::string> lines = Lines(m_cut ? m_head : m_head + m_tail);
        if (m_cut && !lines.empty()) lines.pop_back();
        return lines;
    }
    std::vector<std::string> Last() const {
        std::vector<std::string> lines = Lines(m_cut ? m_tail : m_head + m_tail);
        if (m_cut && !lines.empty()) lines.erase(lines.begin());
        return lines;
    }

private:
    static std::vector<std::string> Lines(const std::string& text) {
        std::vector<std::string> lines;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = std::min(text.find('\n', at), text.size());
            lines.push_back(text.substr(at, std::min(end - at, kMaxLine)));
            at = end + 1;
        }
        return lines;
    }

    std::string m_head;
    std::string m_tail;
    bool m_cut = false;
};

// "2026-01-31 23:59:58", of a line that has such a date; else empty.
std::string DateIn(const std::string& line) {
    static const std::regex kDate(R"((\d{4}-\d\d-\d\d)[ T](\d\d:\d\d:\d\d))");
    std::smatch found;
    return std::regex_search(line, found, kDate) ? found.str(1) + " " + found.str(2) : "";
}

std::string FirstDate(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        std::string date = DateIn(line);
        if (!date.empty()) return date;
    }
    return "";
}

bool NewestFirst(const Ends& ends) {
    std::vector<std::string> last = ends.Last();
    std::reverse(last.begin(), last.end());
    return FirstDate(ends.First()) > FirstDate(last);
}

Excerpt EventsOf(const std::string& name, const Ends& ends) {
    const bool newestFirst = NewestFirst(ends);
    std::vector<std::string> lines = newestFirst ? ends.First() : ends.Last();
    if (newestFirst) std::reverse(lines.begin(), lines.end());
    const bool whole = !ends.IsCut() && lines.size() <= kEventLines;
    if (lines.size() > kEventLines) lines.erase(lines.begin(), lines.end() - kEventLines);
    return {name, lines, whole};
}

Excerpt ManifestOf(const std::string& name, const Ends& ends) {
    std::vector<std::string> lines = ends.First();
    const bool whole = !ends.IsCut() && lines.size() <= kManifestLines;
    if (lines.size() > kManifestLines) lines.resize(kManifestLines);
    return {name, lines, whole};
}

// Puts contents together while an archive is read.
class Collector : public Visitor {
public:
    explicit Collector(Contents& contents) : m_contents(contents) {}

    bool Enter(const Entry& entry) override {
        Finish();
        if (m_contents.entries.size() < kMaxEntries) m_contents.entries.push_back(entry);
        if (entry.kind != Entry::Kind::kFile) return false;
        m_name = entry.name;
        m_manifest = IsManifest(m_name) && m_contents.manifests.size() < kMaxExcerpts;
        m_events = !m_manifest && IsEventLog(m_name) && m_contents.events.size() < kMaxExcerpts;
        return m_manifest || m_events;
    }

    void Content(const char* data, std::size_t size) override { m_ends.Add(data, size); }

    // The entry that was entered last is over.
    void Finish() {
        if (m_manifest) m_contents.manifests.push_back(ManifestOf(m_name, m_ends));
        if (m_manifest && m_name == kTreeManifest) m_contents.tree = ReadManifest(m_ends.Whole());
        if (m_events) m_contents.events.push_back(EventsOf(m_name, m_ends));
        m_manifest = m_events = false;
        m_ends = {};
    }

private:
    Contents& m_contents;
    std::string m_name;
    bool m_manifest = false;
    bool m_events = false;
    Ends m_ends;
};

Reading ReadFile(const std::string& path, const Bounds& bounds, Visitor& visitor) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file) return {Reading::State::kUnreadable, "cannot be opened"};
    const auto size = static_cast<std::uint64_t>(file.tellg());
    Reading reading;
    reading.files = 1;
    reading.bytes = size;
    if (!visitor.Enter({LastComponent(path), Entry::Kind::kFile, size})) return reading;
    file.seekg(0);
    std::array<char, 65536> piece{};
    while (file.read(piece.data(), piece.size()) || file.gcount() > 0) {
        if (bounds.stop && bounds.stop()) break;
        visitor.Content(piece.data(), static_cast<std::size_t>(file.gcount()));
    }
    if (file.bad()) reading = {Reading::State::kUnreadable, "cannot be read"};
    return reading;
}

}  // namespace

Contents ReadContents(const std::string& path, const Bounds& bounds) {
    Contents contents;
    Collector collector(contents);
    contents.reading = ReadArchive(path, bounds, &collector);
    const bool none = contents.reading.state == Reading::State::kBroken && contents.entries.empty();
    if (none && !IsArchiveName(path)) contents.reading = ReadFile(path, bounds, collector);
    collector.Finish();
    return contents;
}

}  // namespace Kemffdc::Archives
