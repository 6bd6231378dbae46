// SPDX-License-Identifier: Apache-2.0
#include "cli/Archive.h"

#include <gmock/gmock.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/DiskFaults.h"

namespace {

namespace fs = std::filesystem;
using Kemffdc::Measure;
using Kemffdc::OutputFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class OutputFolderTest : public testing::Test {
protected:
    OutputFolderTest() {
        std::string pattern = (fs::temp_directory_path() / "kemffdc-XXXXXX").string();
        m_place = mkdtemp(pattern.data());
    }
    ~OutputFolderTest() override { fs::remove_all(m_place); }

    static void Write(const fs::path& file, const std::string& text) {
        std::ofstream(file, std::ios::binary) << text;
    }
    static std::string Read(const fs::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    static std::vector<std::string> Names(const fs::path& folder) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path m_place;
};

TEST_F(OutputFolderTest, DeliversUnderTheNameAndLeavesNothingElse) {
    std::string path;
    {
        OutputFolder folder;
        ASSERT_TRUE(folder.Open(m_place.string()).Ok());
        Write(folder.WorkPath("a.tar.gz"), "archive");
        EXPECT_THAT(Names(m_place), testing::Not(testing::Contains("a.tar.gz")));
        ASSERT_TRUE(folder.Deliver("a.tar.gz", "a.tar.gz", path).Ok());
    }
    EXPECT_EQ(path, (m_place / "a.tar.gz").string());
    EXPECT_EQ(Read(path), "archive");
    EXPECT_THAT(Names(m_place), ElementsAre("a.tar.gz"));
}

TEST_F(OutputFolderTest, NeverReplacesWhatIsThere) {
    Write(m_place / "a.tar.gz", "first");
    fs::create_symlink("/nowhere", m_place / "a-2.tar.gz");
    std::string path;
    {
        OutputFolder folder;
        ASSERT_TRUE(folder.Open(m_place.string()).Ok());
        Write(folder.WorkPath("a.tar.gz"), "second");
        ASSERT_TRUE(folder.Deliver("a.tar.gz", "a.tar.gz", path).Ok());
    }
    EXPECT_EQ(path, (m_place / "a-3.tar.gz").string());
    EXPECT_EQ(Read(m_place / "a.tar.gz"), "first");
    EXPECT_EQ(Read(path), "second");
    EXPECT_TRUE(fs::is_symlink(m_place / "a-2.tar.gz"));
}

TEST_F(OutputFolderTest, NumbersAFolderBehindItsWholeName) {
    fs::create_directory(m_place / "192.0.2.7_ffdc");
    std::string path;
    OutputFolder folder;
    ASSERT_TRUE(folder.Open(m_place.string()).Ok());
    fs::create_directory(folder.WorkPath("KEMFFDC20261120203705"));
    ASSERT_TRUE(folder.Deliver("KEMFFDC20261120203705", "192.0.2.7_ffdc", path).Ok());
    EXPECT_EQ(path, (m_place / "192.0.2.7_ffdc-2").string());
}

TEST_F(OutputFolderTest, TakesNoNameWhoseRecordIsThere) {
    Write(m_place / "a.tar.gz.json", "{}");
    std::string path;
    OutputFolder folder;
    ASSERT_TRUE(folder.Open(m_place.string()).Ok());
    Write(folder.WorkPath("a"), "second");
    ASSERT_TRUE(folder.Deliver("a", "a.tar.gz", path).Ok());
    EXPECT_EQ(path, (m_place / "a-2.tar.gz").string());
}

TEST_F(OutputFolderTest, PutsARecordBesideAnArchiveAndReplacesNone) {
    OutputFolder folder;
    ASSERT_TRUE(folder.Open(m_place.string()).Ok());
    const std::string path = (m_place / "a.tar.gz").string();
    ASSERT_TRUE(folder.DeliverRecord(path, "first").Ok());
    const auto outcome = folder.DeliverRecord(path, "second");
    EXPECT_EQ(outcome.code, 8);
    EXPECT_THAT(outcome.reason, HasSubstr("a.tar.gz.json could not be written: File exists."));
    folder.Discard();
    EXPECT_THAT(Names(m_place), ElementsAre("a.tar.gz.json"));
    EXPECT_EQ(Read(path + ".json"), "first");
    EXPECT_EQ(fs::status(path + ".json").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(OutputFolderTest, HalfARecordNeverStandsThere) {
    OutputFolder folder;
    ASSERT_TRUE(folder.Open(m_place.string()).Ok());
    const std::string path = (m_place / "a.tar.gz").string();
    {
        const DiskFaults faults("write:" + m_place.string() + ":*:short=3");
        EXPECT_EQ(folder.DeliverRecord(path, "record").code, 8);
    }
    folder.Discard();
    EXPECT_THAT(Names(m_place), IsEmpty());
}

TEST_F(OutputFolderTest, MakesAMissingFolderAndTakesItAwayWhenNothingIsDelivered) {
    const fs::path made = m_place / "new";
    {
        OutputFolder folder;
        ASSERT_TRUE(folder.Open(made.string()).Ok());
        Write(folder.WorkPath("a.part"), "half");
        EXPECT_TRUE(fs::is_directory(made));
    }
    EXPECT_FALSE(fs::exists(made));
}

TEST_F(OutputFolderTest, KeepsAFolderThatWasThereBefore) {
    {
        OutputFolder folder;
        ASSERT_TRUE(folder.Open(m_place.string()).Ok());
    }
    EXPECT_TRUE(fs::is_directory(m_place));
    EXPECT_THAT(Names(m_place), IsEmpty());
}

TEST_F(OutputFolderTest, FolderWithoutAParentIsLocalTrouble) {
    OutputFolder folder;
    const auto outcome = folder.Open((m_place / "no" / "such").string());
    EXPECT_EQ(outcome.code, 8);
    EXPECT_THAT(outcome.reason,
                HasSubstr("does not exist and cannot be made: No such file or directory."));
}

TEST_F(OutputFolderTest, FileInPlaceOfTheFolderIsLocalTrouble) {
    Write(m_place / "file", "");
    OutputFolder folder;
    const auto outcome = folder.Open((m_place / "file").string());
    EXPECT_EQ(outcome.code, 8);
    EXPECT_THAT(outcome.reason, HasSubstr("is not a folder."));
}

TEST_F(OutputFolderTest, DiscardedTwiceIsDiscardedOnce) {
    OutputFolder folder;
    ASSERT_TRUE(folder.Open(m_place.string()).Ok());
    folder.Discard();
    folder.Discard();
    EXPECT_THAT(Names(m_place), IsEmpty());
}

TEST_F(OutputFolderTest, RemovesWhatKilledRunsLeftAndTellsItsSize) {
    const fs::path killed = m_place / ".kemffdc-Ab3_xY";
    fs::create_directories(killed / "KEMFFDC20261120203705");
    Write(killed / "a.tar.gz.part", std::string(1000, 'a'));
    Write(killed / "KEMFFDC20261120203705" / "b.log", std::string(500, 'b'));
    OutputFolder folder;
    ASSERT_TRUE(folder.Open(m_place.string()).Ok());

    const auto removed = folder.RemoveLeftOvers();

    ASSERT_EQ(removed.size(), 1U);
    EXPECT_EQ(removed[0].name, ".kemffdc-Ab3_xY");
    EXPECT_EQ(removed[0].bytes, 1500U);
    folder.Discard();
    EXPECT_THAT(Names(m_place), IsEmpty());
}

TEST_F(OutputFolderTest, RemovesAnEmptyFolderOnlyWhenNoRunCanBeStartingInIt) {
    fs::create_directory(m_place / ".kemffdc-fresh1");
    fs::create_directory(m_place / ".kemffdc-older1");
    fs::last_write_time(m_place / ".kemffdc-older1",
                        fs::file_time_type::clock::now() - std::chrono::minutes(2));
    OutputFolder folder;
    ASSERT_TRUE(folder.Open(m_place.string()).Ok());
    const auto removed = folder.RemoveLeftOvers();
    ASSERT_EQ(removed.size(), 1U);
    EXPECT_EQ(removed[0].name, ".kemffdc-older1");
}

TEST_F(OutputFolderTest, LeavesTheFoldersOfRunsThatLive) {
    OutputFolder one;
    OutputFolder other;
    ASSERT_TRUE(one.Open(m_place.string()).Ok());
    ASSERT_TRUE(other.Open(m_place.string()).Ok());
    Write(other.WorkPath("a.part"), "half");

    EXPECT_THAT(one.RemoveLeftOvers(), IsEmpty());

    EXPECT_EQ(Read(other.WorkPath("a.part")), "half");
}

TEST_F(OutputFolderTest, LeavesWhatIsNoWorkingFolder) {
    const fs::path elsewhere = m_place / "elsewhere";
    fs::create_directory(elsewhere);
    Write(elsewhere / "kept", "text");
    fs::create_directory_symlink(elsewhere, m_place / ".kemffdc-linked");
    Write(m_place / ".kemffdc-a_file", "text");
    fs::create_directory(m_place / ".kemffdc-short");
    fs::create_directory(m_place / ".kemffdc-history");
    fs::create_directory(m_place / "x.kemffdc-Ab3_xY");
    const std::vector<std::string> before = Names(m_place);
    {
        OutputFolder folder;
        ASSERT_TRUE(folder.Open(m_place.string()).Ok());
        EXPECT_THAT(folder.RemoveLeftOvers(), IsEmpty());
    }
    EXPECT_EQ(Names(m_place), before);
    EXPECT_EQ(Read(elsewhere / "kept"), "text");
}

// Whoever removes a left-over has it locked; a run that has just made its folder must notice.
TEST_F(OutputFolderTest, RunsThatStartTogetherNeverTakeEachOthersFolders) {
    std::atomic<int> lost{0};
    std::vector<std::thread> runs;
    for (int n = 0; n < 8; ++n) {
        runs.emplace_back([this, &lost] {
            for (int round = 0; round < 50; ++round) {
                OutputFolder folder;
                if (!folder.Open(m_place.string()).Ok()) ++lost;
                if (!folder.RemoveLeftOvers().empty()) ++lost;
                Write(folder.WorkPath("a.part"), "half");
                if (Read(folder.WorkPath("a.part")) != "half") ++lost;
            }
        });
    }
    for (std::thread& run : runs) run.join();
    EXPECT_EQ(lost, 0);
    EXPECT_THAT(Names(m_place), IsEmpty());
}

TEST_F(OutputFolderTest, MeasureGivesSizeAndDigest) {
    Write(m_place / "abc", "abc");
    std::uint64_t size = 0;
    std::string sha256;
    ASSERT_TRUE(Measure((m_place / "abc").string(), [] { return false; }, size, sha256).Ok());
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(sha256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(OutputFolderTest, MeasureStopsWhenTold) {
    Write(m_place / "abc", "abc");
    std::uint64_t size = 7;
    std::string sha256 = "before";
    const auto outcome = Measure((m_place / "abc").string(), [] { return true; }, size, sha256);
    EXPECT_EQ(outcome.code, 130);
    EXPECT_EQ(size, 7U);
    EXPECT_EQ(sha256, "before");
}

TEST_F(OutputFolderTest, MeasureOfAMissingFileIsLocalTrouble) {
    std::uint64_t size = 0;
    std::string sha256;
    EXPECT_EQ(Measure((m_place / "none").string(), [] { return false; }, size, sha256).code, 8);
}

}  // namespace
