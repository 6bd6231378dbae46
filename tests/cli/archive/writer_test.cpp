// SPDX-License-Identifier: Apache-2.0
#include "cli/archive/Writer.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "cli/archive/Contents.h"
#include "cli/archive/TreeManifest.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::Archives::Bounds;
using Kemffdc::Archives::Contents;
using Kemffdc::Archives::ManifestText;
using Kemffdc::Archives::ReadContents;
using Kemffdc::Archives::ReadManifest;
using Kemffdc::Archives::TreeManifest;
using Kemffdc::Archives::TreeWords;
using Kemffdc::Archives::Writer;
using testing::HasSubstr;
using testing::SizeIs;

TEST(ArchiveWriter, WritesWhatTheReaderReads) {
    const TempFolder place;
    const std::string longName = std::string(150, 'a') + "/" + std::string(150, 'b');
    Writer writer(place / "a.tar.gz");
    EXPECT_TRUE(writer.Add("manifest.json", "{}\n", 1700000000));
    EXPECT_TRUE(writer.Add(longName, std::string(100000, 'x'), 1700000000));
    EXPECT_TRUE(writer.Add("empty", "", 1700000000));
    EXPECT_TRUE(writer.Close());
    EXPECT_EQ(writer.Bytes(), std::filesystem::file_size(place / "a.tar.gz"));

    const Contents contents = ReadContents(place / "a.tar.gz", Bounds{});
    EXPECT_TRUE(contents.reading.Ok()) << contents.reading.reason;
    ASSERT_THAT(contents.entries, SizeIs(3));
    EXPECT_EQ(contents.entries[1].name, longName);
    EXPECT_EQ(contents.entries[1].size, 100000U);
    struct stat status {};
    ASSERT_EQ(stat((place / "a.tar.gz").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(ArchiveWriter, WithoutItsEndIsNoArchive) {
    const TempFolder place;
    {
        Writer writer(place / "a.tar.gz");
        EXPECT_TRUE(writer.Add("a", std::string(100000, 'x'), 0));
    }
    EXPECT_FALSE(ReadContents(place / "a.tar.gz", Bounds{}).reading.Ok());
}

TEST(ArchiveWriter, TellsWhyItCannotWrite) {
    const TempFolder place;
    std::ofstream(place / "there") << "x";
    Writer second(place / "there");
    EXPECT_EQ(second.Trouble(), "File exists");
    EXPECT_FALSE(second.Add("a", "b", 0));
    EXPECT_FALSE(second.Close());
}

// A file that may not grow any more, as on a full disk.
TEST(ArchiveWriter, AFullDiskIsTroubleAndStaysIt) {
    const TempFolder place;
    Writer writer(place / "a.tar.gz");
    struct rlimit before {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    struct rlimit small = before;
    small.rlim_cur = 4096;
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    std::string noise;
    for (unsigned n = 1; noise.size() < 200000; n = n * 1664525U + 1013904223U)
        noise += static_cast<char>(n >> 24U);
    bool taken = true;
    for (int n = 0; n < 10 && taken; ++n) taken = writer.Add("a" + std::to_string(n), noise, 0);
    setrlimit(RLIMIT_FSIZE, &before);
    (void)std::signal(SIGXFSZ, handler);

    EXPECT_FALSE(taken);
    EXPECT_EQ(writer.Trouble(), "File too large");
    EXPECT_FALSE(writer.Close());
}

TEST(TreeManifest, IsReadAsItWasWritten) {
    TreeManifest manifest;
    manifest.version = "1.2.3";
    manifest.begun = "2026-01-31T23:59:58Z";
    manifest.ended = "2026-01-31T23:59:59Z";
    manifest.host = "bmc.example";
    manifest.counts.resources = 512;
    manifest.counts.logEntries = 300;
    manifest.counts.unread = 3;
    manifest.counts.limits = {"Reading ended after 20000 requests."};
    const std::string text = ManifestText(manifest);
    EXPECT_THAT(text, HasSubstr("no archive of the BMC's own making"));

    const auto read = ReadManifest(text);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->version, manifest.version);
    EXPECT_EQ(read->host, manifest.host);
    EXPECT_EQ(read->ended, manifest.ended);
    EXPECT_EQ(read->counts.resources, 512U);
    EXPECT_EQ(read->counts.limits, manifest.counts.limits);
    EXPECT_EQ(TreeWords(read->counts),
              "512 resources, 300 of them log entries; 3 could not be read; NOT ALL OF IT");
}

TEST(TreeManifest, OfAnotherKindIsNone) {
    for (const char* text :
         {"", "{}", "[]", R"({"kind":"else"})", R"({"kind":7})", "{\"kind\":\"redfish-tree\""}) {
        EXPECT_FALSE(ReadManifest(text)) << text;
    }
    const auto odd =
        ReadManifest(R"({"kind":"redfish-tree","resources":-1,"limits":[7],"version":{}})");
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->counts.resources, 0U);
}

}  // namespace
