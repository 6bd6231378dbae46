// SPDX-License-Identifier: Apache-2.0
#include "Transfer.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "DownloadTest.h"
#include "HttpsPeer.h"

namespace {

using testing::ElementsAre;

// Notes everything, one line a call; of Progress only what changed.
class Notes : public Varnex::TransferWatcher {
public:
    Notes() { Varnex::AddTransferWatcher(this); }
    ~Notes() override { Varnex::RemoveTransferWatcher(this); }
    Notes(const Notes&) = delete;
    Notes& operator=(const Notes&) = delete;

    void Started(const std::string& localPath) override { lines.push_back("started " + localPath); }
    bool Progress(const Varnex::TransferProgress& progress) override {
        ++calls;
        EXPECT_GE(progress.bytes, bytes) << "bytes that are gone again";
        bytes = progress.bytes;
        if (progress.expected != 0) expected = progress.expected;
        path = progress.localPath;
        return true;
    }
    void Ended(const std::string& localPath, const std::error_code& error) override {
        lines.push_back("ended " + localPath + " " + Text(error));
    }

    std::vector<std::string> lines;
    std::string path;
    std::uint64_t bytes = 0;
    std::uint64_t expected = 0;
    int calls = 0;
};

class TransferWatcherTest : public DownloadTest {
protected:
    // By sha256sum.
    std::string Sha256Of(const std::string& content) const {
        const TempFolder files;
        const std::string path = files.Write("content", content);
        EXPECT_EQ(0, std::system(("sha256sum < " + path + " > " + path + ".sum").c_str()));
        return Content(path + ".sum").substr(0, 64);
    }
};

TEST_F(TransferWatcherTest, SeesADownloadFromItsStartToItsEnd) {
    const HttpsPeer bmc;
    Notes notes;

    EXPECT_EQ("", Text(Download(bmc.At("/file/5000000"))));

    EXPECT_THAT(notes.lines, ElementsAre("started " + target, "ended " + target + " "));
    EXPECT_EQ(target, notes.path);
    EXPECT_EQ(5000000U, notes.bytes);
    EXPECT_EQ(5000000U, notes.expected);
}

TEST_F(TransferWatcherTest, IsToldWhatArrivedAndItsHashBeforeTheEnd) {
    class Results : public Notes {
    public:
        void Completed(const Varnex::TransferResult& result) override {
            struct stat status {};
            EXPECT_EQ(0, stat(result.localPath.c_str(), &status));
            EXPECT_EQ(status.st_dev, result.device);
            EXPECT_EQ(status.st_ino, result.inode);
            EXPECT_EQ(status.st_mtim.tv_sec * 1000000000 + status.st_mtim.tv_nsec, result.modified);
            lines.push_back("completed " + result.localPath + " " + std::to_string(result.bytes) +
                            " " + result.sha256);
        }
    };
    const HttpsPeer bmc;
    const struct {
        std::string size, sha256;
    } rows[] = {
        {"0", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"10", Sha256Of(HttpsPeer::FileContent(10))},
        {"1048576", Sha256Of(HttpsPeer::FileContent(1048576))},
        {"5000001", Sha256Of(HttpsPeer::FileContent(5000001))},
    };
    for (const auto& row : rows) {
        Results results;

        EXPECT_EQ("", Text(Download(bmc.At("/file/" + row.size))));

        EXPECT_THAT(results.lines,
                    ElementsAre("started " + target,
                                "completed " + target + " " + row.size + " " + row.sha256,
                                "ended " + target + " "));
    }
    Results results;
    EXPECT_NE("", Text(Download(bmc.At("/cut/1000"))));
    EXPECT_EQ(2U, results.lines.size()) << "what failed is not complete";
}

TEST_F(TransferWatcherTest, ExpectsNothingWhereTheServerDoesNotSay) {
    const HttpsPeer bmc;
    Notes notes;

    EXPECT_EQ("", Text(Download(bmc.At("/chunked/5000000"))));

    EXPECT_EQ(5000000U, notes.bytes);
    EXPECT_EQ(0U, notes.expected);
}

TEST_F(TransferWatcherTest, SeesFailuresOfBothSides) {
    const HttpsPeer bmc;
    Notes notes;

    EXPECT_NE("", Text(Download(bmc.At("/status/404"))));
    EXPECT_NE(
        "", Text(file_client::download(bmc.At("/file/1"), folder / "absent/x", NoOption(nullptr))));

    EXPECT_THAT(
        notes.lines,
        ElementsAre("started " + target,
                    "ended " + target + " varnex.transfer:1404 The server answered HTTP status 404",
                    "started " + (folder / "absent/x"),
                    "ended " + (folder / "absent/x") + " generic:2 No such file or directory"));
    EXPECT_EQ(0U, notes.bytes) << "the body of an error is not the file";
}

TEST_F(TransferWatcherTest, IsCalledAtLeastOnceASecondWhileNothingArrives) {
    Environment("VARNEX_TRANSFER_STALL_TIME", "5");
    const HttpsPeer bmc;
    double longest = 0;
    Stopwatch since;
    const Watcher watcher([&](const Varnex::TransferProgress&) {
        longest = std::max(longest, since.Seconds());
        since = Stopwatch();
        return true;
    });

    EXPECT_EQ(28, Download(bmc.At("/stall/100000")).value());

    EXPECT_LT(longest, 1.6);
}

TEST_F(TransferWatcherTest, StopsADownloadWithinASecondAndNothingIsLeft) {
    const HttpsPeer bmc;
    for (const char* path : {"/slow/1000", "/stall/100000", "/hang"}) {
        const Stopwatch start;
        Stopwatch sinceStop;
        bool stopped = false;
        const Watcher watcher([&](const Varnex::TransferProgress&) {
            if (start.Seconds() < 1.5 || stopped) return true;
            sinceStop = Stopwatch();
            stopped = true;
            return false;
        });

        const std::error_code error = Download(bmc.At(path));

        EXPECT_EQ("varnex.transfer:42 The download was stopped", Text(error)) << path;
        EXPECT_EQ(std::errc::operation_canceled, error);
        EXPECT_LT(sinceStop.Seconds(), 1.0) << path;
        ExpectNothingLeft();
    }
}

TEST_F(TransferWatcherTest, StopsAFileWithoutAnEndWhereItSays) {
    const HttpsPeer bmc;
    std::uint64_t atMost = 0;
    const Watcher watcher([&](const Varnex::TransferProgress& progress) {
        atMost = progress.bytes;
        return progress.bytes < 20000000;
    });

    EXPECT_EQ("varnex.transfer:42 The download was stopped", Text(Download(bmc.At("/endless"))));

    EXPECT_LT(atMost, 25000000U) << "asked too seldom";
    ExpectNothingLeft();
}

// Connections of this process that a program started now would have. A pair of local sockets, with
// which libcurl wakes itself, is not one.
int InheritedConnections() {
    int count = 0;
    for (int fd = 3; fd < 1024; ++fd) {
        int domain = 0;
        socklen_t size = sizeof domain;
        const int flags = fcntl(fd, F_GETFD);
        if (flags < 0 || (flags & FD_CLOEXEC) != 0) continue;
        if (getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0) continue;
        if (domain == AF_INET || domain == AF_INET6) ++count;
    }
    return count;
}

TEST_F(TransferWatcherTest, ADownloadHasNoConnectionThatAChildInherits) {
    const HttpsPeer bmc;
    int during = -1;
    const Watcher watcher([&](const Varnex::TransferProgress& progress) {
        if (progress.bytes > 0) during = std::max(during, InheritedConnections());
        return true;
    });

    EXPECT_EQ("", Text(Download(bmc.At("/slow/5"))));

    EXPECT_EQ(0, during);
}

TEST_F(TransferWatcherTest, OneOfSeveralIsEnoughToStopAndAllAreAsked) {
    const HttpsPeer bmc;
    int asked = 0;
    const Watcher first([](const Varnex::TransferProgress&) { return false; });
    const Watcher second([&](const Varnex::TransferProgress&) {
        ++asked;
        return true;
    });

    EXPECT_EQ(42, Download(bmc.At("/file/1")).value());

    EXPECT_EQ(1, asked);
}

TEST_F(TransferWatcherTest, OneThatThrowsStopsTheDownload) {
    const HttpsPeer bmc;
    const Watcher watcher(
        [](const Varnex::TransferProgress&) -> bool { throw std::runtime_error("bad"); });

    EXPECT_EQ("varnex.transfer:42 The download was stopped", Text(Download(bmc.At("/file/1"))));
    ExpectNothingLeft();
}

TEST_F(TransferWatcherTest, OneThatDownloadsItselfIsNotToldAboutThat) {
    const HttpsPeer bmc;
    int calls = 0;
    std::string inner = "none";
    const Watcher watcher([&](const Varnex::TransferProgress& progress) {
        EXPECT_EQ(target, progress.localPath);
        if (calls++ == 0) {
            inner =
                Text(file_client::download(bmc.At("/file/5"), folder / "inner", NoOption(nullptr)));
        }
        return true;
    });

    EXPECT_EQ("", Text(Download(bmc.At("/file/10"))));

    EXPECT_EQ("", inner);
    EXPECT_THAT(folder.Names(), ElementsAre("archive", "inner"));
}

TEST_F(TransferWatcherTest, MayComeAndGoWhileThreadsDownload) {
    const HttpsPeer bmc;
    std::vector<std::thread> threads;
    std::atomic<int> running{4};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < 5; ++n) {
                EXPECT_EQ("",
                          Text(file_client::download(bmc.At("/slow/3"), folder / std::to_string(i),
                                                     NoOption(nullptr))));
            }
            --running;
        });
    }
    std::atomic<int> calls{0};
    while (running > 0) {
        std::atomic<bool> gone{false};
        {
            const Watcher watcher([&](const Varnex::TransferProgress&) {
                EXPECT_FALSE(gone);
                ++calls;
                return true;
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        gone = true;
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_GT(calls, 0);
}

}  // namespace
