// SPDX-License-Identifier: Apache-2.0
//
// SFTP servers that answer wrongly: what they do is in hostile_sftp_peer.py, by the name of a file.
#include <sys/resource.h>

#include "DownloadTest.h"
#include "HttpsPeer.h"
#include "support/Peer.h"

// As in the test of memory: else what was freed counts.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
const char* __asan_default_options() { return "quarantine_size_mb=1"; }

namespace {

using testing::ElementsAre;

class HostileSftp : public DownloadTest {
protected:
    HostileSftp() { Environment("VARNEX_SFTP_HOST_KEYS", "insecure"); }

    void Start(const std::string& greeting = "right") {
        peer = std::make_unique<Peer>(
            std::vector<std::string>{"/usr/bin/python3", VARNEX_TEST_FOLDER "/hostile_sftp_peer.py",
                                     "--reads", reads, "--greeting", greeting});
        port = static_cast<std::uint16_t>(std::stoi(Member(ParseJson(peer->Line()), "port")));
    }
    Uri At(const std::string& path) const {
        return Uri("sftp", "127.0.0.1", port, "admin", "secret", path);
    }
    std::string Fetch(const std::string& name) { return Text(Download(At("/" + name))); }
    std::string List(const std::string& name) {
        return Text(file_client::ls_directory(At("/" + name), names));
    }
    static std::string Letters() {
        std::string content(300000, '\0');
        for (std::size_t i = 0; i < content.size(); ++i)
            content[i] = static_cast<char>('a' + i % 26);
        return content;
    }
    static long PeakKibibytes() {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;
    }

    TempFolder files;
    const std::string reads = files / "reads";
    std::list<std::string> names = {"untouched"};
    std::unique_ptr<Peer> peer;
    std::uint16_t port = 0;
};

TEST_F(HostileSftp, OneThatIsRightIsFetchedAndListed) {
    Start();

    EXPECT_EQ("", Fetch("right"));
    EXPECT_TRUE(Letters() == Content(target));
    EXPECT_EQ("", List("right"));
    EXPECT_THAT(names, ElementsAre("name-1"));
}

TEST_F(HostileSftp, ShortReadsAndAMissingSizeAreNormal) {
    Start();
    for (const char* name : {"short", "no-size"}) {
        EXPECT_EQ("", Fetch(name));
        EXPECT_TRUE(Letters() == Content(target)) << name;
        std::filesystem::remove(target);
    }
}

TEST_F(HostileSftp, NothingIsAskedForBehindTheEndThatWasTold) {
    Start();

    EXPECT_EQ("", Fetch("right"));

    std::istringstream lines(Content(reads));
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        unsigned long offset = 0;
        unsigned long size = 0;
        ASSERT_EQ(2, sscanf(line.c_str(), "[\"right\", %lu, %lu]", &offset, &size)) << line;
        EXPECT_LE(offset + size, 300000U);
    }
    EXPECT_EQ(10, count);
}

TEST_F(HostileSftp, ASizeThatIsNotMetIsNoFile) {
    Start();
    const struct {
        const char *name, *announced, *has;
    } rows[] = {{"half", "150000", "300000"},
                {"double", "600000", "fewer"},
                {"huge", "4611686018427387904", "fewer"}};
    for (const auto& row : rows) {
        EXPECT_EQ(std::string("varnex.transfer:18 The server announced ") + row.announced +
                      " bytes and has " + row.has,
                  Fetch(row.name));
        ExpectNothingLeft();
    }
}

TEST_F(HostileSftp, WhatIsNoPlainFileIsNotOpened) {
    Start();
    for (const std::string name : {"fifo", "device"}) {
        EXPECT_EQ("varnex.transfer:79 \"/" + name + "\" is no plain file", Fetch(name));
        ExpectNothingLeft();
    }
    EXPECT_FALSE(Exists(reads));
}

TEST_F(HostileSftp, WrongAnswersEndTheDownloadInLittleMemoryAndTime) {
    Start();
    EXPECT_EQ("", Fetch("right"));
    std::filesystem::remove(target);
    const long before = PeakKibibytes();
    const std::string start = "varnex.transfer:79 The SFTP server sends ";
    const struct {
        const char *name, *text;
    } rows[] = {
        {"unasked", "an answer to a question that was never asked"},
        {"twice", "an answer to a question that was never asked"},
        {"flood", "an answer to a question that was never asked"},
        {"more", "another number of bytes than it was asked for"},
        {"nothing", "another number of bytes than it was asked for"},
        {"long-packet", "no SFTP packets"},
        {"too-long-packet", "no SFTP packets"},
        {"empty-packet", "no SFTP packets"},
        {"lying-length", "a packet that ends in the middle"},
        {"another-type", "an answer to another question"},
        {"many-attributes", "a packet that ends in the middle"},
    };
    for (const auto& row : rows) {
        const Stopwatch watch;
        EXPECT_EQ(start + row.text, Fetch(row.name)) << row.name;
        EXPECT_LT(watch.Seconds(), 20) << row.name;
        ExpectNothingLeft();
    }
    EXPECT_LT(PeakKibibytes() - before, 32 * 1024);
}

TEST_F(HostileSftp, WrongListingsEndInLittleMemoryAndLeaveTheNamesAlone) {
    Start();
    EXPECT_EQ("", List("right"));
    names = {"untouched"};
    const long before = PeakKibibytes();
    const std::string start = "varnex.transfer:79 The SFTP server sends ";

    EXPECT_EQ("varnex.transfer:63 The listing is too long", List("endless"));
    EXPECT_EQ("varnex.transfer:63 The listing is too long", List("endless-short"));
    EXPECT_EQ(start + "a part of a listing without names", List("endless-nothing"));
    EXPECT_EQ(start + "a packet that ends in the middle", List("lying-count"));
    EXPECT_EQ(start + "a packet that ends in the middle", List("lying-name"));

    EXPECT_THAT(names, ElementsAre("untouched"));
    EXPECT_LT(PeakKibibytes() - before, 160 * 1024) << "with the sanitizer's share";
}

TEST_F(HostileSftp, WrongGreetingsEndIt) {
    const struct {
        const char *greeting, *text;
    } rows[] = {{"old", "an older version than 3"},
                {"wrong", "no greeting"},
                {"cut", "a packet that ends in the middle"},
                {"long", "no SFTP packets"}};
    for (const auto& row : rows) {
        Start(row.greeting);
        EXPECT_EQ(std::string("varnex.transfer:79 The SFTP server sends ") + row.text,
                  Fetch("right"));
        ExpectNothingLeft();
    }
}

TEST_F(HostileSftp, OneThatDoesNotGreetEndsWithTheTimeForStalls) {
    Environment("VARNEX_TRANSFER_STALL_TIME", "2");
    Start("none");

    EXPECT_EQ("varnex.transfer:28 The server stalled", Fetch("right"));

    ExpectNothingLeft();
}

}  // namespace
