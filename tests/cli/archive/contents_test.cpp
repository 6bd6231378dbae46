// SPDX-License-Identifier: Apache-2.0
#include "cli/archive/Contents.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "archive/MadeArchive.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::Archives::Bounds;
using Kemffdc::Archives::Contents;
using Kemffdc::Archives::Entry;
using Kemffdc::Archives::Excerpt;
using Kemffdc::Archives::ReadContents;
using Kemffdc::Archives::Reading;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string Lines(int count, const std::string& text) {
    std::string lines;
    for (int n = 1; n <= count; ++n) lines += text + std::to_string(n) + "\n";
    return lines;
}

class ReadContentsTest : public testing::Test {
protected:
    Contents Of(const std::vector<MadeEntry>& entries) const {
        MakeArchive(place / "a.tgz", entries);
        Contents contents = ReadContents(place / "a.tgz", Bounds{});
        EXPECT_TRUE(contents.reading.Ok()) << contents.reading.reason;
        return contents;
    }
    std::vector<std::string> EventsIn(const std::string& log) const {
        const Contents contents = Of({{"event_log/events.txt", log}});
        return contents.events.empty() ? std::vector<std::string>{} : contents.events[0].lines;
    }

    TempFolder place;
};

TEST_F(ReadContentsTest, ListsAllThatIsInside) {
    const Contents contents = Of({{"ffdc", "", AE_IFDIR}, {"ffdc/a", "alpha"}, {"ffdc/b", ""}});
    ASSERT_THAT(contents.entries, SizeIs(3));
    EXPECT_EQ(contents.entries[1].name, "ffdc/a");
    EXPECT_EQ(contents.entries[1].size, 5U);
    EXPECT_EQ(contents.reading.files, 2U);
    EXPECT_THAT(contents.manifests, IsEmpty());
    EXPECT_THAT(contents.events, IsEmpty());
}

TEST_F(ReadContentsTest, ShowsTheBeginningOfAManifest) {
    const Contents contents = Of({{"x/Manifest.json", "{\n \"Model\": \"KEM-1\"\n}\n"},
                                  {"manifest.txt", Lines(50, "line ")}});
    ASSERT_THAT(contents.manifests, SizeIs(2));
    EXPECT_EQ(contents.manifests[0].name, "x/Manifest.json");
    EXPECT_THAT(contents.manifests[0].lines, ElementsAre("{", " \"Model\": \"KEM-1\"", "}"));
    EXPECT_TRUE(contents.manifests[0].whole);
    EXPECT_THAT(contents.manifests[1].lines, SizeIs(40));
    EXPECT_EQ(contents.manifests[1].lines[0], "line 1");
    EXPECT_FALSE(contents.manifests[1].whole);
}

TEST_F(ReadContentsTest, ShowsTheNewestLinesOfAnEventLog) {
    const Contents contents = Of({{"ffdc/event_log/events.txt", Lines(240, "event ")},
                                  {"ffdc/sel.csv", "1;power on\n"},
                                  {"ffdc/event_log/events.json", "[]"},
                                  {"ffdc/console.log", "hello\n"}});
    ASSERT_THAT(contents.events, SizeIs(2));
    EXPECT_EQ(contents.events[0].name, "ffdc/event_log/events.txt");
    EXPECT_THAT(contents.events[0].lines, SizeIs(10));
    EXPECT_EQ(contents.events[0].lines.front(), "event 231");
    EXPECT_EQ(contents.events[0].lines.back(), "event 240");
    EXPECT_FALSE(contents.events[0].whole);
    EXPECT_EQ(contents.events[1].name, "ffdc/sel.csv");
    EXPECT_TRUE(contents.events[1].whole);
}

TEST_F(ReadContentsTest, DatesTellWhichEndIsTheNewer) {
    EXPECT_THAT(EventsIn("3 2026-01-03T10:00:00Z c\n2 2026-01-02T10:00:00Z b\n"
                         "1 2026-01-01T10:00:00Z a\n"),
                ElementsAre("1 2026-01-01T10:00:00Z a", "2 2026-01-02T10:00:00Z b",
                            "3 2026-01-03T10:00:00Z c"));
    EXPECT_THAT(EventsIn("head\n1 2026-01-01 10:00:00 a\n2 2026-01-01 10:00:01 b\nfoot\n"),
                ElementsAre("head", "1 2026-01-01 10:00:00 a", "2 2026-01-01 10:00:01 b", "foot"));
}

TEST_F(ReadContentsTest, OfALongLogBothEndsAreAtHand) {
    std::string log;
    for (int n = 0; n < 20000; ++n) log += "2026-01-01 10:00:00 event " + std::to_string(n) + "\n";
    std::vector<std::string> lines = EventsIn(log);
    EXPECT_EQ(lines.back(), "2026-01-01 10:00:00 event 19999");
    EXPECT_THAT(lines, SizeIs(10));

    lines = EventsIn("2026-01-02 10:00:00 newest\n" + log);
    EXPECT_THAT(lines, SizeIs(10));
    EXPECT_EQ(lines.back(), "2026-01-02 10:00:00 newest");
    EXPECT_EQ(lines.front(), "2026-01-01 10:00:00 event 8");
}

TEST_F(ReadContentsTest, ALongLineIsCut) {
    EXPECT_THAT(EventsIn(std::string(100000, 'x')), ElementsAre(std::string(1000, 'x')));
    EXPECT_THAT(EventsIn(""), IsEmpty());
    EXPECT_THAT(EventsIn(std::string(300000, 'x')), IsEmpty()) << "neither end is a whole line";
}

TEST_F(ReadContentsTest, ABrokenArchiveShowsWhatCameBefore) {
    MakeArchive(place / "a.tgz", {{"manifest.txt", "one\n"}, {"b", std::string(900000, 'b')}});
    std::string content = Content(place / "a.tgz");
    content[content.size() - 5] ^= 1;
    place.Write("a.tgz", content);
    const Contents contents = ReadContents(place / "a.tgz", Bounds{});
    EXPECT_EQ(contents.reading.state, Reading::State::kBroken);
    EXPECT_THAT(contents.entries, SizeIs(2));
    ASSERT_THAT(contents.manifests, SizeIs(1));
    EXPECT_THAT(contents.manifests[0].lines, ElementsAre("one"));
}

TEST_F(ReadContentsTest, AFileOfAnotherKindIsItsOwnContent) {
    const std::string log = place.Write("events.log", "a\nb\n");
    const Contents contents = ReadContents(log, Bounds{});
    EXPECT_TRUE(contents.reading.Ok());
    ASSERT_THAT(contents.entries, SizeIs(1));
    EXPECT_EQ(contents.entries[0].name, "events.log");
    EXPECT_EQ(contents.entries[0].size, 4U);
    ASSERT_THAT(contents.events, SizeIs(1));
    EXPECT_THAT(contents.events[0].lines, ElementsAre("a", "b"));
}

TEST_F(ReadContentsTest, AnArchiveUnderAnotherNameIsRead) {
    MakeArchive(place / "a.bin", {{"inside", "x"}});
    const Contents contents = ReadContents(place / "a.bin", Bounds{});
    ASSERT_THAT(contents.entries, SizeIs(1));
    EXPECT_EQ(contents.entries[0].name, "inside");
}

TEST_F(ReadContentsTest, AnArchiveOfCountlessFilesIsListedInPart) {
    std::vector<MadeEntry> entries;
    for (int n = 0; n < 10050; ++n) entries.push_back({"manifest" + std::to_string(n), "x"});
    const Contents contents = Of(entries);
    EXPECT_THAT(contents.entries, SizeIs(10000));
    EXPECT_EQ(contents.reading.files, 10050U);
    EXPECT_THAT(contents.manifests, SizeIs(5));
}

}  // namespace
