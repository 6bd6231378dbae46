// SPDX-License-Identifier: Apache-2.0
#include "support/DiskFaults.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "support/TempFolder.h"

namespace {

class DiskFaultsTest : public testing::Test {
protected:
    int Open(const std::string& path) { return ::open(path.c_str(), O_WRONLY | O_CREAT, 0600); }

    TempFolder folder;
};

TEST_F(DiskFaultsTest, TheThirdWriteFailsAndNoOther) {
    const DiskFaults disk("write:" + folder.Path() + ":3:ENOSPC");
    const int fd = Open(folder / "a");

    EXPECT_EQ(::write(fd, "12", 2), 2);
    EXPECT_EQ(::write(fd, "34", 2), 2);
    EXPECT_EQ(::write(fd, "56", 2), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(::write(fd, "78", 2), 2);
    ::close(fd);

    EXPECT_EQ(Content(folder / "a"), "123478");
    EXPECT_EQ(disk.Played(), 1);
}

TEST_F(DiskFaultsTest, FromTheSecondOnAllWritesFail) {
    const DiskFaults disk("write:" + folder.Path() + ":2+:EIO");
    const int fd = Open(folder / "a");

    EXPECT_EQ(::write(fd, "1", 1), 1);
    EXPECT_EQ(::write(fd, "2", 1), -1);
    EXPECT_EQ(::write(fd, "3", 1), -1);
    ::close(fd);
    EXPECT_EQ(disk.Played(), 2);
}

TEST_F(DiskFaultsTest, FilesElsewhereAreLeftAlone) {
    const TempFolder other;
    const DiskFaults disk("open:" + folder.Path() + ":*:EACCES");

    EXPECT_EQ(Open(folder / "a"), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_FALSE(std::ofstream(folder / "b").is_open());
    EXPECT_TRUE(std::ofstream(other / "b").is_open());
}

TEST_F(DiskFaultsTest, AWriteIsCutShort) {
    const DiskFaults disk("write:" + folder.Path() + ":*:short=3");
    const int fd = Open(folder / "a");

    EXPECT_EQ(::write(fd, "12345", 5), 3);
    ::close(fd);
    EXPECT_EQ(Content(folder / "a"), "123");
}

TEST_F(DiskFaultsTest, AFailedCloseHasClosed) {
    const DiskFaults disk("close:" + folder.Path() + ":1:EIO");
    const int fd = Open(folder / "a");

    EXPECT_EQ(::close(fd), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
}

TEST_F(DiskFaultsTest, RenameAndRemovalFailInTheStandardLibraryToo) {
    folder.Write("a", "text");
    const DiskFaults disk("rename:" + (folder / "b") + ":*:EIO;unlink:" + folder.Path() +
                          ":1:EBUSY");
    std::error_code error;

    std::filesystem::rename(folder / "a", folder / "b", error);
    EXPECT_EQ(error.value(), EIO);
    std::filesystem::remove(folder / "a", error);
    EXPECT_EQ(error.value(), EBUSY);
    EXPECT_TRUE(Exists(folder / "a"));
}

TEST_F(DiskFaultsTest, NothingFailsAfterwards) {
    { const DiskFaults disk("open:" + folder.Path() + ":*:EIO"); }

    EXPECT_TRUE(std::ofstream(folder / "a").is_open());
}

TEST_F(DiskFaultsTest, RulesThatCannotBeReadAreRefused) {
    for (const char* rules : {"read:/:1:EIO", "write:/:x:EIO", "write:/:1:EWHAT", "write:/:1", "x",
                              "write:/:1:short=", "write:/:1:EIO;y"}) {
        EXPECT_THROW(DiskFaults{rules}, std::invalid_argument) << rules;
    }
}

}  // namespace
