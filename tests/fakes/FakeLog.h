// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_FAKELOG_H
#define VARNEX_TESTS_FAKELOG_H

#include <gmock/gmock.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace fakes {

struct LogLine {
    int level;
    std::string source;
    std::string text;
};
void PrintTo(const LogLine& line, std::ostream* out);

// Keeps what the code under test logs while it lives, in order, from every thread.
class FakeLog {
public:
    FakeLog();
    ~FakeLog();
    FakeLog(const FakeLog&) = delete;
    FakeLog& operator=(const FakeLog&) = delete;

    std::vector<LogLine> Lines() const;

    // Lines of one source file alone.
    std::vector<LogLine> LinesOf(const std::string& source) const;

    void Clear();

    // Called with every line, for the order of lines and other things.
    void OnLine(std::function<void(const LogLine&)> call);

    // From now on, or again no longer, every record fails with std::bad_alloc where it is made.
    void RunOutOfMemory();
    void HaveMemoryAgain();
};

// Matchers for one line; the second form pins the source tag too.
testing::Matcher<LogLine> Failure(const std::string& text);
testing::Matcher<LogLine> Warning(const std::string& text);
testing::Matcher<LogLine> Milestone(const std::string& text);
testing::Matcher<LogLine> Trace(const std::string& text);
testing::Matcher<LogLine> Failure(const std::string& source, const std::string& text);
testing::Matcher<LogLine> Warning(const std::string& source, const std::string& text);
testing::Matcher<LogLine> Milestone(const std::string& source, const std::string& text);
testing::Matcher<LogLine> Trace(const std::string& source, const std::string& text);

}  // namespace fakes

#endif
