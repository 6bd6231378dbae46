// SPDX-License-Identifier: Apache-2.0
#include "cli/Arrivals.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using Kemffdc::Arrivals;

// What a download would have told; nothing has this digest, so it shows where the answer is from.
const std::string kTold = "told by the transfer";
constexpr char kDigestOfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class ArrivalsTest : public testing::Test {
protected:
    ArrivalsTest() { Write("abc"); }

    void Write(const std::string& text) const { std::ofstream(m_path) << text; }

    void Arrive() {
        struct stat file {};
        ASSERT_EQ(stat(m_path.c_str(), &file), 0);
        const std::int64_t modified =
            file.st_mtim.tv_sec * std::int64_t{1'000'000'000} + file.st_mtim.tv_nsec;
        m_arrivals.Completed({m_path, 3, kTold, file.st_dev, file.st_ino, modified});
    }

    std::string Digest(const std::string& path) const {
        std::uint64_t size = 0;
        std::string sha256;
        EXPECT_TRUE(m_arrivals
                        .Measure(
                            path, [] { return false; }, size, sha256)
                        .Ok());
        EXPECT_EQ(size, 3U);
        return sha256;
    }

    const TempFolder m_place;
    const std::string m_path = m_place / "archive";
    std::atomic<bool> m_stop{false};
    Arrivals m_arrivals{[this] { return m_stop.load(); }};
};

TEST_F(ArrivalsTest, AFileThatArrivedIsNotReadAgain) {
    Arrive();
    EXPECT_EQ(Digest(m_path), kTold);
}

TEST_F(ArrivalsTest, AFileThatNoDownloadBroughtIsRead) { EXPECT_EQ(Digest(m_path), kDigestOfAbc); }

TEST_F(ArrivalsTest, AFileThatWasMovedIsStillTheOneThatArrived) {
    Arrive();
    const std::string moved = m_place / "moved";
    fs::rename(m_path, moved);
    EXPECT_EQ(Digest(moved), kTold);
}

TEST_F(ArrivalsTest, AFileThatWasWrittenSinceIsRead) {
    Arrive();
    Write("abc");
    const timespec times[] = {{0, UTIME_OMIT}, {1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, m_path.c_str(), times, 0), 0);
    EXPECT_EQ(Digest(m_path), kDigestOfAbc);
}

TEST_F(ArrivalsTest, AFileOfAnotherSizeIsReadThoughItsTimeWasPutBack) {
    Arrive();
    struct stat before {};
    ASSERT_EQ(stat(m_path.c_str(), &before), 0);
    Write("ab");
    const timespec times[] = {{0, UTIME_OMIT}, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, m_path.c_str(), times, 0), 0);

    std::uint64_t size = 0;
    std::string sha256;
    EXPECT_TRUE(m_arrivals
                    .Measure(
                        m_path, [] { return false; }, size, sha256)
                    .Ok());
    EXPECT_EQ(size, 2U);
    EXPECT_NE(sha256, kTold);
}

TEST_F(ArrivalsTest, AnotherFileUnderTheNameIsRead) {
    Arrive();
    const std::string other = m_place / "other";
    std::ofstream(other) << "abc";
    fs::rename(other, m_path);
    EXPECT_EQ(Digest(m_path), kDigestOfAbc);
}

TEST_F(ArrivalsTest, AnArchiveIsReadAsSoonAsItIsHere) {
    const std::string archive = m_place.Write("a.tgz", "<html>");
    m_arrivals.Completed({archive, 6, kTold, 0, 0, 0});
    const auto reading = m_arrivals.Reading(archive);
    ASSERT_TRUE(reading.has_value());
    EXPECT_EQ(reading->reason, "is none: it begins with \"<html>\"");
}

TEST_F(ArrivalsTest, AnArchiveThatNoDownloadBroughtIsReadWhenItIsAskedFor) {
    EXPECT_FALSE(m_arrivals.Reading(m_place.Write("a.tar.gz", "")).value().Ok());
}

TEST_F(ArrivalsTest, AFileOfAnotherKindIsNotRead) {
    Arrive();
    EXPECT_FALSE(m_arrivals.Reading(m_path).has_value());
}

TEST_F(ArrivalsTest, NobodyWaitsForAReadingOnceTheRunStops) {
    m_stop = true;
    EXPECT_EQ(m_arrivals.Reading(m_place / "a.tgz")->state,
              Kemffdc::Archives::Reading::State::kStopped);
}

}  // namespace
