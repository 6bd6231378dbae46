// SPDX-License-Identifier: Apache-2.0
//
// Where a download ends up on this machine. Nothing here depends on the protocol.
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "DownloadTest.h"
#include "HttpsPeer.h"
#include "PrivateMounts.h"

namespace {

// What close() is to answer for a file of that name, once.
std::atomic<int> closeError{0};

bool IsPartFile(int fd) {
    char target[4096] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t size = readlink(link.c_str(), target, sizeof target - 1);
    const std::string path(target, size > 0 ? static_cast<std::size_t>(size) : 0);
    return path.find(".varnex-part") != std::string::npos;
}

}  // namespace

// In the place of the C library's: no file system at hand fails only when a file is closed.
extern "C" __attribute__((visibility("default"))) int close(int fd) {
    const int error = closeError != 0 && IsPartFile(fd) ? closeError.exchange(0) : 0;
    const long result = syscall(SYS_close, fd);
    if (error == 0) return static_cast<int>(result);
    errno = error;
    return -1;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FileClientTarget : public DownloadTest {
protected:
    std::error_code DownloadTo(const std::string& path) {
        return file_client::download(bmc.At("/file/300000"), path, NoOption(nullptr));
    }
    // How many requests the server saw: local trouble is found before anybody is asked.
    std::size_t Asked() const { return bmc.Requests().size(); }

    const HttpsPeer bmc;
    const std::string content = HttpsPeer::FileContent(300000);
};

TEST_F(FileClientTarget, StandsUnderItsFinalNameOnlyWhenItIsComplete) {
    bool seen = false;
    const Watcher watcher([&](const Varnex::TransferProgress& progress) {
        if (progress.bytes == 0) return true;
        seen = true;
        EXPECT_THAT(folder.Names(), ElementsAre("archive.varnex-part"));
        EXPECT_EQ(0600U, Mode(part));
        return true;
    });
    umask(0);

    EXPECT_EQ("", Text(Download(bmc.At("/slow/20"))));

    EXPECT_TRUE(seen);
    EXPECT_THAT(folder.Names(), ElementsAre("archive"));
    EXPECT_EQ(0600U, Mode(target));
}

TEST_F(FileClientTarget, AnExistingFileIsReplaced) {
    folder.Write("archive", std::string(1000000, 'x'));

    EXPECT_EQ("", Text(DownloadTo(target)));

    EXPECT_EQ(content, Content(target));
}

TEST_F(FileClientTarget, ALinkIsReplacedAndWhatItNamesIsNot) {
    const TempFolder elsewhere;
    const std::string victim = elsewhere.Write("victim", "untouched");
    std::filesystem::create_symlink(victim, target);
    std::filesystem::create_symlink(victim, part);

    EXPECT_EQ("", Text(DownloadTo(target)));

    EXPECT_EQ("untouched", Content(victim));
    EXPECT_FALSE(std::filesystem::is_symlink(target));
    EXPECT_EQ(content, Content(target));
    EXPECT_THAT(folder.Names(), ElementsAre("archive"));
}

TEST_F(FileClientTarget, AnOldPartOfAnyKindIsReplaced) {
    const std::function<void()> leftovers[] = {
        [&] { folder.Write("archive.varnex-part", std::string(1000000, 'x')); },
        [&] { std::filesystem::create_symlink("nowhere", part); },
        [&] { EXPECT_EQ(0, mkfifo(part.c_str(), 0600)); },
        [&] {
            folder.Write("archive.varnex-part", "x");
            EXPECT_EQ(0, chmod(part.c_str(), 0));
        },
    };
    for (const auto& leave : leftovers) {
        leave();

        EXPECT_EQ("", Text(DownloadTo(target)));

        EXPECT_EQ(content, Content(target));
        EXPECT_THAT(folder.Names(), ElementsAre("archive"));
    }
}

TEST_F(FileClientTarget, AFolderInThePlaceOfThePartIsAnError) {
    std::filesystem::create_directory(part);

    EXPECT_EQ("generic:21 Is a directory", Text(DownloadTo(target)));

    EXPECT_TRUE(std::filesystem::is_directory(part));
    EXPECT_EQ(0U, Asked());
}

TEST_F(FileClientTarget, APartThatSomebodyIsWritingIsLeftAlone) {
    folder.Write("archive.varnex-part", "theirs");
    const int fd = open(part.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(0, flock(fd, LOCK_EX));

    EXPECT_EQ("generic:16 Device or resource busy", Text(DownloadTo(target)));
    EXPECT_EQ("theirs", Content(part));
    EXPECT_EQ(0U, Asked());

    close(fd);
    EXPECT_EQ("", Text(DownloadTo(target)));
}

TEST_F(FileClientTarget, ASecondDownloadToTheSameNameIsRefusedWhileTheFirstRuns) {
    std::string second;
    const Watcher watcher([&](const Varnex::TransferProgress& progress) {
        if (second.empty() && progress.bytes > 0) {
            std::thread([&] { second = Text(DownloadTo(target)); }).join();
        }
        return true;
    });

    EXPECT_EQ("", Text(Download(bmc.At("/slow/20"))));

    EXPECT_EQ("generic:16 Device or resource busy", second);
    EXPECT_EQ(HttpsPeer::FileContent(20000), Content(target));
}

TEST_F(FileClientTarget, ManyThatStartAtOnceLeaveOneWholeFile) {
    std::vector<std::thread> threads;
    std::vector<std::string> results(8);
    for (std::string& result : results) {
        threads.emplace_back([&] { result = Text(DownloadTo(target)); });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_THAT(results, testing::Contains(""));
    EXPECT_THAT(results, testing::Each(testing::AnyOf("", "generic:16 Device or resource busy")));
    EXPECT_EQ(content, Content(target));
    EXPECT_THAT(folder.Names(), ElementsAre("archive"));
}

TEST_F(FileClientTarget, APartThatIsTakenAwayMeanwhileIsAnError) {
    const Watcher watcher([&](const Varnex::TransferProgress& progress) {
        if (progress.bytes > 0) {
            std::filesystem::remove(part);
            folder.Write("archive.varnex-part", "somebody else's");
        }
        return true;
    });

    EXPECT_EQ("generic:116 Stale file handle", Text(Download(bmc.At("/slow/20"))));

    EXPECT_EQ("somebody else's", Content(part));
    EXPECT_FALSE(Exists(target));
}

TEST_F(FileClientTarget, ANameThatIsNoFileNameIsRefused) {
    for (const std::string& path : {std::string(), folder.Path() + "/", folder / ".", folder / "..",
                                    std::string("."), std::string(".."), std::string("/"),
                                    folder / std::string("a\0b", 3), std::string("a\0/b", 4)}) {
        EXPECT_EQ("generic:22 Invalid argument", Text(DownloadTo(path))) << path;
    }
    EXPECT_EQ(0U, Asked());
    ExpectNothingLeft();
}

TEST_F(FileClientTarget, LocalTroubleIsTheSystemsErrorAndFoundBeforeTheServerIsAsked) {
    folder.Write("file", "");
    std::filesystem::create_directory(folder / "folder");
    const struct {
        std::string path;
        const char* text;
    } rows[] = {
        {folder / "absent/archive", "generic:2 No such file or directory"},
        {folder / "file/archive", "generic:20 Not a directory"},
        {folder / "folder", "generic:21 Is a directory"},
        {folder / std::string(300, 'x'), "generic:36 File name too long"},
    };
    for (const auto& row : rows) EXPECT_EQ(row.text, Text(DownloadTo(row.path)));

    EXPECT_EQ(0U, Asked());
    EXPECT_THAT(folder.Names(), ElementsAre("file", "folder"));
}

TEST_F(FileClientTarget, AFolderThatMayNotBeWrittenIsThePermissionError) {
    constexpr uid_t kNobody = 65534;
    std::filesystem::create_directory(folder / "closed");
    ASSERT_EQ(0, chmod(folder.Path().c_str(), 0755));
    ASSERT_EQ(0, chmod((folder / "closed").c_str(), 0555));
    const bool root = geteuid() == 0;  // who may write everywhere
    ASSERT_EQ(0, root ? seteuid(kNobody) : 0);

    const std::string text = Text(DownloadTo(folder / "closed/archive"));

    ASSERT_EQ(0, root ? seteuid(0) : 0);
    EXPECT_EQ("generic:13 Permission denied", text);
    EXPECT_EQ(0U, Asked());
}

TEST_F(FileClientTarget, AFullDiskIsTheSystemsErrorAndLeavesNothing) {
    if (!EnterPrivateMounts() || !MountTmpfs(folder.Path(), "size=1m")) {
        GTEST_SKIP() << "no private mounts here";
    }

    EXPECT_EQ("generic:28 No space left on device", Text(Download(bmc.At("/file/5000000"))));
    ExpectNothingLeft();

    EXPECT_EQ("", Text(DownloadTo(target))) << "what fits still does";
}

TEST_F(FileClientTarget, AnErrorThatOnlyCloseReportsIsAnErrorAndLeavesNothing) {
    closeError = EIO;

    EXPECT_EQ("generic:5 Input/output error", Text(DownloadTo(target)));

    EXPECT_EQ(0, closeError) << "nobody closed the file";
    ExpectNothingLeft();
}

TEST_F(FileClientTarget, ARelativeNameMeansTheFolderOfTheStart) {
    const TempFolder other;
    ASSERT_EQ(0, chdir(folder.Path().c_str()));
    const Watcher watcher([&](const Varnex::TransferProgress&) {
        EXPECT_EQ(0, chdir(other.Path().c_str()));
        return true;
    });

    EXPECT_EQ("", Text(DownloadTo("archive")));

    EXPECT_EQ(content, Content(target));
    EXPECT_THAT(other.Names(), IsEmpty());
}

}  // namespace
