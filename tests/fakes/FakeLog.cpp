// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeLog.h"

#include <atomic>
#include <locale>
#include <mutex>
#include <new>
#include <sstream>
#include <utility>

#include "Log.h"

namespace {

std::mutex g_mutex;
std::vector<fakes::LogLine>* g_lines = nullptr;  // of the FakeLog that lives
std::function<void(const fakes::LogLine&)> g_onLine;
std::atomic<bool> g_isOutOfMemory{false};

}  // namespace

struct Log::Impl {
    int level;
    std::string source;
    std::ostringstream stream;
};

Log::Log(int level, const char* sourceFile, int line) : m_impl(new Impl{level, sourceFile, {}}) {
    EXPECT_GT(line, 0);
    m_impl->stream.imbue(std::locale::classic());
    if (g_isOutOfMemory) throw std::bad_alloc();
}

Log::~Log() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (g_lines != nullptr) {
        g_lines->push_back({m_impl->level, m_impl->source, m_impl->stream.str()});
        if (g_onLine) g_onLine(g_lines->back());
    }
}

std::ostream& Log::Stream() { return m_impl->stream; }

namespace fakes {

namespace {

testing::Matcher<LogLine> Line(int level, const testing::Matcher<std::string>& source,
                               const std::string& text) {
    return testing::AllOf(testing::Field("level", &LogLine::level, level),
                          testing::Field("source", &LogLine::source, source),
                          testing::Field("text", &LogLine::text, text));
}

}  // namespace

void PrintTo(const LogLine& line, std::ostream* out) {
    *out << line.level << " " << line.source << " " << testing::PrintToString(line.text);
}

FakeLog::FakeLog() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    EXPECT_EQ(g_lines, nullptr) << "one FakeLog at a time";
    g_lines = new std::vector<LogLine>;
}

FakeLog::~FakeLog() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    delete g_lines;
    g_lines = nullptr;
    g_onLine = nullptr;
    g_isOutOfMemory = false;
}

void FakeLog::RunOutOfMemory() { g_isOutOfMemory = true; }

void FakeLog::HaveMemoryAgain() { g_isOutOfMemory = false; }

std::vector<LogLine> FakeLog::Lines() const {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return *g_lines;
}

std::vector<LogLine> FakeLog::LinesOf(const std::string& source) const {
    std::vector<LogLine> lines;
    for (const LogLine& line : Lines()) {
        if (line.source == source) lines.push_back(line);
    }
    return lines;
}

void FakeLog::Clear() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_lines->clear();
}

void FakeLog::OnLine(std::function<void(const LogLine&)> call) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_onLine = std::move(call);
}

testing::Matcher<LogLine> Failure(const std::string& text) { return Line(1, testing::_, text); }
testing::Matcher<LogLine> Warning(const std::string& text) { return Line(2, testing::_, text); }
testing::Matcher<LogLine> Milestone(const std::string& text) { return Line(3, testing::_, text); }
testing::Matcher<LogLine> Trace(const std::string& text) { return Line(4, testing::_, text); }

testing::Matcher<LogLine> Failure(const std::string& source, const std::string& text) {
    return Line(1, source, text);
}
testing::Matcher<LogLine> Warning(const std::string& source, const std::string& text) {
    return Line(2, source, text);
}
testing::Matcher<LogLine> Milestone(const std::string& source, const std::string& text) {
    return Line(3, source, text);
}
testing::Matcher<LogLine> Trace(const std::string& source, const std::string& text) {
    return Line(4, source, text);
}

}  // namespace fakes
