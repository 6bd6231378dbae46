// SPDX-License-Identifier: Apache-2.0
#include "cli/history/BmcLock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "cli/history/BmcName.h"
#include "support/DiskFaults.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::Outcome;
using Kemffdc::History::BmcLock;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

// A process that holds the lock of a BMC until it is told to let go, or killed.
class OtherRun {
public:
    OtherRun(const std::string& folder, const std::string& bmc) {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        EXPECT_EQ(pipe(m_end), 0);
        m_process = fork();
        if (m_process == 0) {
            close(m_end[1]);
            Hold(folder, bmc, ready[1]);
        }
        close(ready[1]);
        char word = 0;
        EXPECT_EQ(read(ready[0], &word, 1), 1);
        EXPECT_EQ(word, '+');
        close(ready[0]);
    }
    ~OtherRun() { End(); }

    pid_t Process() const { return m_process; }

    void Kill() {
        kill(m_process, SIGKILL);
        Collect();
    }

    void End() {
        if (m_process == 0) return;
        close(m_end[0]);
        close(m_end[1]);
        Collect();
    }

private:
    [[noreturn]] void Hold(const std::string& folder, const std::string& bmc, int ready) const {
        {
            BmcLock lock;
            const bool well = lock.Take(folder, bmc).Ok() && lock.Trouble().empty();
            (void)!write(ready, well ? "+" : "-", 1);
            char word = 0;
            (void)!read(m_end[0], &word, 1);
        }
        _exit(0);
    }

    void Collect() {
        int status = 0;
        waitpid(m_process, &status, 0);
        m_process = 0;
    }

    int m_end[2]{};
    pid_t m_process = 0;
};

class BmcLockTest : public testing::Test {
protected:
    std::vector<std::string> LockFiles() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder + "/locks")) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    TempFolder place;
    const std::string folder = place / "state";
};

TEST_F(BmcLockTest, KeepsAnotherProcessAwayAndSaysWhich) {
    const OtherRun other(folder, "bmc7");
    BmcLock lock;
    const Outcome outcome = lock.Take(folder, "bmc7");
    EXPECT_EQ(outcome.code, Kemffdc::kLocalFile);
    EXPECT_THAT(outcome.reason,
                HasSubstr("(process " + std::to_string(other.Process()) + ", since 20"));
    EXPECT_THAT(outcome.reason, HasSubstr("--wait"));
    EXPECT_EQ(lock.Trouble(), "");
}

TEST_F(BmcLockTest, ARefusedRunLeavesTheOthersLock) {
    const OtherRun other(folder, "bmc7");
    {
        BmcLock refused;
        EXPECT_FALSE(refused.Take(folder, "bmc7").Ok());
    }
    BmcLock lock;
    EXPECT_FALSE(lock.Take(folder, "bmc7").Ok());
}

TEST_F(BmcLockTest, AnotherBmcIsFree) {
    const OtherRun other(folder, "bmc7:443");
    BmcLock lock;
    EXPECT_TRUE(lock.Take(folder, "bmc7:8443").Ok());
    EXPECT_EQ(lock.Trouble(), "");
}

TEST_F(BmcLockTest, IsFreeAgainAfterARunHasEndedAndNothingStays) {
    {
        const OtherRun other(folder, "bmc7");
        EXPECT_THAT(LockFiles(), ElementsAre("bmc7"));
    }
    EXPECT_THAT(LockFiles(), IsEmpty());
    BmcLock lock;
    EXPECT_TRUE(lock.Take(folder, "bmc7").Ok());
    EXPECT_EQ(Mode(folder + "/locks"), 0700U);
    EXPECT_EQ(Mode(folder + "/locks/bmc7"), 0600U);
}

TEST_F(BmcLockTest, IsFreeAgainAfterARunWasKilled) {
    OtherRun other(folder, "bmc7");
    other.Kill();
    EXPECT_THAT(LockFiles(), ElementsAre("bmc7"));
    place.Write("state/locks/bmc7", std::string(200, 'x'));
    BmcLock lock;
    EXPECT_TRUE(lock.Take(folder, "bmc7").Ok());
    EXPECT_THAT(Content(folder + "/locks/bmc7"),
                MatchesRegex(std::to_string(getpid()) + " 20[^ ]+Z [^ ]+\n"));
}

TEST_F(BmcLockTest, WaitsUntilTheOtherIsDone) {
    auto other = std::make_unique<OtherRun>(folder, "bmc7");
    std::string holder;
    int asked = 0;
    const BmcLock::Patience patience{[&](const std::string& who) { holder = who; },
                                     [&] {
                                         if (++asked == 3) other.reset();
                                         return asked > 100;
                                     }};
    BmcLock lock;
    EXPECT_TRUE(lock.Take(folder, "bmc7", &patience).Ok());
    EXPECT_THAT(holder, testing::StartsWith("process "));
    EXPECT_GE(asked, 3);
    BmcLock third;
    EXPECT_FALSE(third.Take(folder, "bmc7").Ok());
}

TEST_F(BmcLockTest, WaitingCanBeGivenUp) {
    const OtherRun other(folder, "bmc7");
    int asked = 0;
    const BmcLock::Patience patience{[](const std::string&) {}, [&] { return ++asked == 3; }};
    BmcLock lock;
    EXPECT_EQ(lock.Take(folder, "bmc7", &patience).code, Kemffdc::kInterrupted);
    EXPECT_EQ(asked, 3);
}

TEST_F(BmcLockTest, AFolderThatCannotBeMadeKeepsNobodyFromRunning) {
    place.Write("state", "a file");
    BmcLock lock;
    EXPECT_TRUE(lock.Take(folder, "bmc7").Ok());
    EXPECT_THAT(lock.Trouble(), HasSubstr("is not a folder"));
}

TEST_F(BmcLockTest, AFileThatCannotBeMadeKeepsNobodyFromRunning) {
    const DiskFaults faults("open:" + folder + "/locks/bmc7:*:EROFS");
    BmcLock lock;
    EXPECT_TRUE(lock.Take(folder, "bmc7").Ok());
    EXPECT_THAT(lock.Trouble(), HasSubstr("cannot be locked: Read-only file system."));
}

TEST_F(BmcLockTest, OnAFullDiskOnlyTheWordsAreMissing) {
    std::string reason;
    {
        const OtherRun other(folder, "bmc8");  // makes the folder
        const DiskFaults faults("write:" + folder + ":*:ENOSPC");
        BmcLock lock;
        EXPECT_TRUE(lock.Take(folder, "bmc7").Ok());
        EXPECT_EQ(lock.Trouble(), "");
        BmcLock second;
        reason = second.Take(folder, "bmc7").reason;
    }
    EXPECT_THAT(reason, HasSubstr("(a process that has just begun)"));
}

// A lock file is removed by whoever gives the lock back: nobody may hold one that has no name.
TEST_F(BmcLockTest, NoTwoProcessesHoldItAtOnce) {
    std::vector<pid_t> processes;
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    const std::string inside = place / "inside";
    for (int n = 0; n < 4; ++n) {
        const pid_t process = fork();
        if (process == 0) {
            int failures = 0;
            for (int round = 0; round < 200; ++round) {
                BmcLock lock;
                if (!lock.Take(folder, "bmc7").Ok()) continue;
                const int file = open(inside.c_str(), O_CREAT | O_EXCL | O_WRONLY, 0600);
                if (file < 0) ++failures;
                close(file);
                std::this_thread::sleep_for(std::chrono::microseconds(100));
                unlink(inside.c_str());
            }
            _exit(failures == 0 ? 0 : 1);
        }
        processes.push_back(process);
    }
    for (const pid_t process : processes) {
        int status = -1;
        waitpid(process, &status, 0);
        EXPECT_EQ(status, 0);
    }
}

TEST(SameBmc, HasOneSpelling) {
    using Kemffdc::History::SameBmc;
    EXPECT_EQ(SameBmc("BMC7.Example", 443), "bmc7.example:443");
    EXPECT_EQ(SameBmc("192.0.2.1", 443), "192.0.2.1:443");
    EXPECT_EQ(SameBmc("2001:DB8::0:7", 443), "[2001:db8::7]:443");
    EXPECT_EQ(SameBmc("fe80::1%eth0", 623), "[fe80::1%eth0]:623");
}

}  // namespace
