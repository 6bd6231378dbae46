// SPDX-License-Identifier: Apache-2.0
#include "cli/archive/Reader.h"

#include <gmock/gmock.h>
#include <zlib.h>

#include <clocale>
#include <map>
#include <string>
#include <vector>

#include "archive/MadeArchive.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::Archives::Bounds;
using Kemffdc::Archives::Entry;
using Kemffdc::Archives::IsArchiveName;
using Kemffdc::Archives::ReadArchive;
using Kemffdc::Archives::Reading;
using Kemffdc::Archives::Visitor;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

// Bytes that hardly compress, the same ones each time.
std::string Noise(std::size_t size) {
    std::string noise(size, '\0');
    unsigned state = 1;
    for (char& byte : noise) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return noise;
}

class Collector : public Visitor {
public:
    bool Enter(const Entry& entry) override {
        entries.push_back(entry);
        return entry.name.find("skip") == std::string::npos;
    }
    void Content(const char* data, std::size_t size) override {
        content[entries.back().name].append(data, size);
    }

    std::vector<Entry> entries;
    std::map<std::string, std::string> content;
};

class ReadArchiveTest : public testing::Test {
protected:
    std::string Good(const std::vector<MadeEntry>& entries) const {
        MakeArchive(path, entries);
        return Content(path);
    }
    Reading Read(const std::string& content) const {
        place.Write("a.tar.gz", content);
        return ReadArchive(path, Bounds{});
    }

    TempFolder place;
    const std::string path = place / "a.tar.gz";
};

TEST(IsArchiveName, KnowsTwoEndings) {
    for (const char* name : {"a.tgz", "a.tar.gz", "/x/A.TGZ", "a.Tar.Gz", ".tgz"}) {
        EXPECT_TRUE(IsArchiveName(name)) << name;
    }
    for (const char* name : {"a.gz", "a.tar", "tgz", "a.tgz.part", "a.tzz", "", "a.log"}) {
        EXPECT_FALSE(IsArchiveName(name)) << name;
    }
}

TEST_F(ReadArchiveTest, ReadsAWholeArchiveAndCountsIt) {
    Good({{"ffdc", "", AE_IFDIR}, {"ffdc/a", "alpha"}, {"ffdc/b", Noise(700000)}});
    const Reading reading = ReadArchive(path, Bounds{});
    EXPECT_TRUE(reading.Ok()) << reading.reason;
    EXPECT_EQ(reading.reason, "");
    EXPECT_EQ(reading.files, 2U);
    EXPECT_GT(reading.bytes, 700000U);
}

TEST_F(ReadArchiveTest, ShowsEntriesAndTheContentThatIsWanted) {
    Good({{"ffdc", "", AE_IFDIR},
          {"a", "alpha"},
          {"skipped", "no"},
          {"l", "a", AE_IFLNK},
          {"b", Noise(300000)},
          {"p", "", AE_IFIFO}});
    Collector seen;
    EXPECT_TRUE(ReadArchive(path, Bounds{}, &seen).Ok());
    ASSERT_EQ(seen.entries.size(), 6U);
    EXPECT_EQ(seen.entries[0].name, "ffdc/");
    EXPECT_EQ(seen.entries[0].kind, Entry::Kind::kFolder);
    EXPECT_EQ(seen.entries[1].size, 5U);
    EXPECT_EQ(seen.entries[2].size, 2U);
    EXPECT_EQ(seen.entries[3].kind, Entry::Kind::kLink);
    EXPECT_EQ(seen.entries[5].kind, Entry::Kind::kOther);
    EXPECT_THAT(seen.content, ElementsAre(Pair("a", "alpha"), Pair("b", Noise(300000))));
}

TEST_F(ReadArchiveTest, NamesAreTakenInAnyCharacterSet) {
    const std::string utf8 = "Gr\xC3\xBC\xC3\x9F\x65";
    const std::string latin1 = "Gr\xFC\xDF\x65";
    // Its writer asks for the character set, the reader must not.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    MakeArchive(path, {{utf8, "x"}}, true, "pax");
    std::setlocale(LC_CTYPE, "C");
    Collector seen;
    EXPECT_TRUE(ReadArchive(path, Bounds{}, &seen).Ok());
    Good({{utf8, "x"}, {latin1, "x"}});
    EXPECT_TRUE(ReadArchive(path, Bounds{}, &seen).Ok());
    ASSERT_EQ(seen.entries.size(), 3U);
    EXPECT_EQ(seen.entries[0].name, utf8);
    EXPECT_EQ(seen.entries[1].name, utf8);
    EXPECT_EQ(seen.entries[2].name, latin1);
}

TEST_F(ReadArchiveTest, ANameIsCutWhereNoFileCouldHaveIt) {
    Good({{std::string(900000, 'n'), "x"}});
    Collector seen;
    EXPECT_TRUE(ReadArchive(path, Bounds{}, &seen).Ok());
    EXPECT_EQ(seen.entries.at(0).name, std::string(4096, 'n'));
}

TEST_F(ReadArchiveTest, AnArchiveThatIsNotPackedIsRead) {
    MakeArchive(path, {{"a", "alpha"}}, false);
    const Reading reading = ReadArchive(path, Bounds{});
    EXPECT_TRUE(reading.Ok()) << reading.reason;
    EXPECT_EQ(reading.files, 1U);
}

TEST_F(ReadArchiveTest, AnArchiveOfNothingIsWhole) {
    Good({});
    const Reading reading = ReadArchive(path, Bounds{});
    EXPECT_TRUE(reading.Ok()) << reading.reason;
    EXPECT_EQ(reading.files, 0U);
}

TEST_F(ReadArchiveTest, AnHtmlPageIsNoArchive) {
    const Reading reading =
        Read("<!DOCTYPE html>\n<html><body>Log in</body></html>" + std::string(3000, ' '));
    EXPECT_EQ(reading.state, Reading::State::kBroken);
    EXPECT_THAT(reading.reason,
                testing::StartsWith("is none: it begins with \"<!DOCTYPE html> <html>"));
}

TEST_F(ReadArchiveTest, NothingAtAllIsNoArchive) {
    const Reading reading = Read("");
    EXPECT_EQ(reading.state, Reading::State::kBroken);
    EXPECT_EQ(reading.reason, "is empty");
}

TEST_F(ReadArchiveTest, PackedTextIsNoArchive) {
    const gzFile file = gzopen(path.c_str(), "wb");
    gzwrite(file, "hello, hello", 12);
    gzclose(file);
    const Reading reading = ReadArchive(path, Bounds{});
    EXPECT_EQ(reading.state, Reading::State::kBroken);
    EXPECT_EQ(reading.reason, "holds no tar archive");
}

// At every length but its own, and with small pieces missing too.
TEST_F(ReadArchiveTest, ACutArchiveIsBroken) {
    const std::string good = Good({{"a", Noise(5000)}, {"b", Noise(3000)}});
    for (std::size_t size = 1; size < good.size(); size += size < 30 ? 1 : 97) {
        const Reading reading = Read(good.substr(0, size));
        EXPECT_EQ(reading.state, Reading::State::kBroken) << size;
        EXPECT_NE(reading.reason, "") << size;
    }
    for (std::size_t missing = 1; missing <= 12; ++missing) {
        const Reading reading = Read(good.substr(0, good.size() - missing));
        EXPECT_EQ(reading.state, Reading::State::kBroken) << missing;
        EXPECT_EQ(reading.reason, "ends too early: it is cut") << missing;
    }
}

// Only gzip's check sum notices most of these.
TEST_F(ReadArchiveTest, AFlippedBitIsNoticed) {
    const std::string good = Good({{"a", Noise(5000)}, {"b", std::string(3000, 'b')}});
    for (std::size_t at = 10; at < good.size(); at += 53) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 0x10);
        EXPECT_EQ(Read(bad).state, Reading::State::kBroken) << at;
    }
    std::string bad = good;
    bad[good.size() - 6] ^= 1;
    EXPECT_EQ(Read(bad).reason, "is damaged (incorrect data check)");
}

TEST_F(ReadArchiveTest, AnArchiveThatWasCutBeforeItWasPackedIsBroken) {
    MakeArchive(place / "plain.tar", {{"a", Noise(100000)}}, false);
    const std::string half = Content(place / "plain.tar").substr(0, 60000);
    const gzFile file = gzopen(path.c_str(), "wb");
    gzwrite(file, half.data(), static_cast<unsigned>(half.size()));
    gzclose(file);
    const Reading reading = ReadArchive(path, Bounds{});
    EXPECT_EQ(reading.state, Reading::State::kBroken);
    EXPECT_THAT(reading.reason, HasSubstr("Truncated"));
}

TEST_F(ReadArchiveTest, StopsAtTheLimit) {
    Good({{"zeros", std::string(3000000, '\0')}});
    Bounds bounds;
    bounds.bytes = 1000000;
    const Reading reading = ReadArchive(path, bounds);
    EXPECT_EQ(reading.state, Reading::State::kTooLarge);
    EXPECT_EQ(reading.reason, "unpacks to more than 976.6 KiB and was not read further");
    EXPECT_LT(reading.bytes, 1500000U);
    bounds.bytes = 4000000;
    EXPECT_TRUE(ReadArchive(path, bounds).Ok());
}

// What follows the end of the tar is read too, for gzip's check sum, and counts.
TEST_F(ReadArchiveTest, StopsAtTheLimitBehindTheTar) {
    const std::string good = Good({{"a", "alpha"}});
    const gzFile file = gzopen(path.c_str(), "ab");
    const std::string zeros(3000000, '\0');
    gzwrite(file, zeros.data(), static_cast<unsigned>(zeros.size()));
    gzclose(file);
    Bounds bounds;
    EXPECT_TRUE(ReadArchive(path, bounds).Ok());
    bounds.bytes = 1000000;
    EXPECT_EQ(ReadArchive(path, bounds).state, Reading::State::kTooLarge);
}

TEST_F(ReadArchiveTest, StopsWhenTold) {
    Good({{"a", Noise(3000000)}});
    Bounds bounds;
    int asked = 0;
    bounds.stop = [&asked] { return ++asked > 3; };
    const Reading reading = ReadArchive(path, bounds);
    EXPECT_EQ(reading.state, Reading::State::kStopped);
    EXPECT_LT(reading.bytes, 1500000U);
}

TEST_F(ReadArchiveTest, AFileThatIsMissingOrCannotBeOpenedIsThisMachinesTrouble) {
    Reading reading = ReadArchive(place / "none.tgz", Bounds{});
    EXPECT_EQ(reading.state, Reading::State::kUnreadable);
    EXPECT_EQ(reading.reason, "cannot be opened: No such file or directory");
    reading = ReadArchive(place.Path(), Bounds{});
    EXPECT_EQ(reading.state, Reading::State::kUnreadable);
    EXPECT_EQ(reading.reason, "cannot be read: Is a directory");
}

}  // namespace
