// SPDX-License-Identifier: Apache-2.0
#include "cli/history/Store.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "LogSink.h"
#include "cli/history/Processes.h"
#include "cli/history/Schema.h"
#include "support/DiskFaults.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::History::ArchiveRow;
using Kemffdc::History::Bmc;
using Kemffdc::History::Id;
using Kemffdc::History::RunRow;
using Kemffdc::History::StepRow;
using Kemffdc::History::Store;
using Kemffdc::History::StoreError;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr char kTime[] = "20..-..-..T..:..:..Z";

RunRow RunOn(const std::string& host) {
    RunRow run;
    run.command = "collect";
    run.toolVersion = "1.0.0";
    run.channel = "redfish";
    run.host = host;
    run.port = 443;
    return run;
}

std::string Error(const std::function<void()>& work) {
    try {
        work();
    } catch (const StoreError& error) {
        return error.what();
    }
    return "no error";
}

class StoreTest : public testing::Test {
protected:
    std::vector<Id> Numbers(const std::string& bmc, int limit = 100) const {
        std::vector<Id> numbers;
        for (const RunRow& run : Store(folder).Runs(bmc, limit)) numbers.push_back(run.id);
        return numbers;
    }

    std::string Integrity() const {
        SQLite::Database database(file, SQLite::OPEN_READONLY);
        return database.execAndGet("PRAGMA integrity_check").getString();
    }

    void Execute(const std::string& statement) const {
        SQLite::Database database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        database.exec(statement);
    }

    TempFolder place;
    const std::string folder = place / "state";
    const std::string file = folder + "/history.db";
};

TEST_F(StoreTest, IsMadeForThisUserAloneWithAWriteAheadLog) {
    EXPECT_FALSE(Store::Exists(folder));
    Store store(folder);
    store.BeginRun(RunOn("bmc7"));
    EXPECT_TRUE(Store::Exists(folder));
    EXPECT_EQ(Mode(folder), 0700U);
    for (const char* end : {"", "-wal", "-shm"}) EXPECT_EQ(Mode(file + end), 0600U) << end;
    EXPECT_EQ(Mode(folder + "/history.live"), 0600U);
    SQLite::Database database(file, SQLite::OPEN_READONLY);
    EXPECT_EQ(database.execAndGet("PRAGMA journal_mode").getString(), "wal");
    EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), 2);
}

TEST_F(StoreTest, KeepsAllThatIsKnownOfARun) {
    RunRow run = RunOn("BMC7.Example");
    run.continues = 0;
    run.user = "admin";
    run.logKind = "mini";
    run.exportUri = "sftp://store/ffdc";
    run.output = "/srv/ffdc";
    Id id = 0;
    {
        Store store(folder);
        id = store.BeginRun(run);
        store.SetBmc(id, {"192.0.2.7", "1.15.0", "Varnex", "Server", "KEM-1", "2.3", "SN1", "0a-1b",
                          "AA:BB", "SHA256:xyz"});
        store.SetWay(id, "redfish", 8443);
        store.SetTask(id, "/redfish/v1/TaskService/Tasks/1", "Running");
        store.SetTask(id, "/redfish/v1/TaskService/Tasks/1", "Completed");
        store.SetBmcPath(id, "/download/ffdc.tar.gz");
        store.EndRun(id, 7, "download-failed", "The download was cut.");
        run.command = "resume";
        run.continues = id;
        EXPECT_EQ(store.BeginRun(run), id + 1);
    }
    const Store store(folder);
    const RunRow found = store.FindRun(id).value();
    EXPECT_EQ(found.id, id);
    EXPECT_EQ(found.command, "collect");
    EXPECT_EQ(found.toolVersion, "1.0.0");
    EXPECT_EQ(found.continues, 0);
    EXPECT_EQ(found.channel, "redfish");
    EXPECT_EQ(found.host, "bmc7.example");
    EXPECT_EQ(found.port, 8443);
    EXPECT_EQ(found.user, "admin");
    EXPECT_EQ(found.logKind, "mini");
    EXPECT_EQ(found.exportUri, "sftp://store/ffdc");
    EXPECT_EQ(found.output, "/srv/ffdc");
    EXPECT_THAT(found.begunAt, MatchesRegex(kTime));
    EXPECT_THAT(found.endedAt, MatchesRegex(kTime));
    EXPECT_EQ(found.exitCode, 7);
    EXPECT_EQ(found.outcome, "download-failed");
    EXPECT_EQ(found.reason, "The download was cut.");
    EXPECT_EQ(found.bmc.address, "192.0.2.7");
    EXPECT_EQ(found.bmc.serviceVersion, "1.15.0");
    EXPECT_EQ(found.bmc.vendor, "Varnex");
    EXPECT_EQ(found.bmc.product, "Server");
    EXPECT_EQ(found.bmc.model, "KEM-1");
    EXPECT_EQ(found.bmc.firmware, "2.3");
    EXPECT_EQ(found.bmc.serial, "SN1");
    EXPECT_EQ(found.bmc.uuid, "0a-1b");
    EXPECT_EQ(found.bmc.certificate, "AA:BB");
    EXPECT_EQ(found.bmc.hostKey, "SHA256:xyz");
    EXPECT_EQ(found.task, "/redfish/v1/TaskService/Tasks/1");
    EXPECT_EQ(found.taskState, "Completed");
    EXPECT_EQ(found.bmcPath, "/download/ffdc.tar.gz");
    EXPECT_EQ(store.FindRun(id + 1)->continues, id);
    EXPECT_FALSE(store.FindRun(id + 2).has_value());
}

TEST_F(StoreTest, ARunThatHasNotEndedHasNoCode) {
    Store store(folder);
    const RunRow found = store.FindRun(store.BeginRun(RunOn("bmc7"))).value();
    EXPECT_EQ(found.endedAt, "");
    EXPECT_EQ(found.exitCode, -1);
}

TEST_F(StoreTest, KeepsStepsInTheirOrder) {
    Store store(folder);
    const Id other = store.BeginRun(RunOn("bmc8"));
    const Id run = store.BeginRun(RunOn("bmc7"));
    store.BeginStep(run, "preflight");
    store.EndStep(run, 0, 0.25, "");
    store.BeginStep(other, "preflight");
    store.BeginStep(run, "export");
    store.EndStep(run, 2, 1.5, "refused");
    store.BeginStep(run, "gather");

    const std::vector<StepRow> steps = store.Steps(run);

    ASSERT_EQ(steps.size(), 3U);
    EXPECT_EQ(steps[0].name, "preflight");
    EXPECT_EQ(steps[0].code, 0);
    EXPECT_EQ(steps[0].seconds, 0.25);
    EXPECT_THAT(steps[0].endedAt, MatchesRegex(kTime));
    EXPECT_EQ(steps[1].name, "export");
    EXPECT_EQ(steps[1].code, 2);
    EXPECT_EQ(steps[1].seconds, 1.5);
    EXPECT_EQ(steps[1].detail, "refused");
    EXPECT_EQ(steps[2].name, "gather");
    EXPECT_THAT(steps[2].begunAt, MatchesRegex(kTime));
    EXPECT_EQ(steps[2].endedAt, "");
    EXPECT_EQ(store.Steps(other)[0].endedAt, "");
}

TEST_F(StoreTest, KeepsArchivesFromTheirFirstByteToTheirPlace) {
    Store store(folder);
    const Id run = store.BeginRun(RunOn("bmc7"));
    const Id id = store.BeginArchive(run, "ffdc.tar.gz");
    store.SetPartial(id, "/srv/ffdc/.kemffdc-x/ffdc.part", "\"v1\"", 5000000000);

    ArchiveRow found = store.Archives(run).at(0);
    EXPECT_EQ(found.id, id);
    EXPECT_EQ(found.run, run);
    EXPECT_EQ(found.name, "ffdc.tar.gz");
    EXPECT_EQ(found.partial, "/srv/ffdc/.kemffdc-x/ffdc.part");
    EXPECT_EQ(found.validator, "\"v1\"");
    EXPECT_EQ(found.expected, 5000000000U);
    EXPECT_EQ(found.endedAt, "");
    EXPECT_FALSE(found.whole.has_value());
    EXPECT_THAT(store.Delivered(""), IsEmpty());
    EXPECT_EQ(store.Partials().at(0).id, id);

    ArchiveRow done;
    done.path = "/srv/ffdc/bmc7.tar.gz";
    done.size = 5000000000;
    done.sha256 = "abc";
    done.whole = false;
    done.detail = "does not unpack";
    store.Deliver(id, done);
    found = store.ArchivesAt("/srv/ffdc/bmc7.tar.gz").at(0);
    EXPECT_EQ(found.id, id);
    EXPECT_EQ(found.partial, "");
    EXPECT_THAT(store.Partials(), IsEmpty());
    EXPECT_EQ(found.size, 5000000000U);
    EXPECT_EQ(found.sha256, "abc");
    EXPECT_EQ(found.whole, std::optional<bool>(false));
    EXPECT_EQ(found.detail, "does not unpack");
    EXPECT_THAT(found.endedAt, MatchesRegex(kTime));
    EXPECT_EQ(store.Delivered("").size(), 1U);
    EXPECT_EQ(store.Delivered("bmc7").size(), 1U);
    EXPECT_THAT(store.Delivered("bmc8"), IsEmpty());

    store.NoteRemoved(id);
    EXPECT_THAT(store.Delivered(""), IsEmpty());
    EXPECT_THAT(store.ArchivesAt("/srv/ffdc/bmc7.tar.gz"), IsEmpty());
    EXPECT_THAT(store.Archives(run).at(0).removedAt, MatchesRegex(kTime));
}

TEST_F(StoreTest, AFailedArchiveKeepsItsPartialFile) {
    Store store(folder);
    const Id run = store.BeginRun(RunOn("bmc7"));
    const Id id = store.BeginArchive(run, "ffdc.tar.gz");
    store.SetPartial(id, "/part", "", 0);
    store.FailArchive(id, "cut");
    const ArchiveRow found = store.Archives(run).at(0);
    EXPECT_EQ(found.partial, "/part");
    EXPECT_EQ(found.detail, "cut");
    EXPECT_EQ(found.path, "");
    EXPECT_THAT(found.endedAt, MatchesRegex(kTime));
}

TEST_F(StoreTest, FindsRunsByHostAddressAndSerialTheNewestFirst) {
    {
        Store store(folder);
        Bmc bmc;
        bmc.address = "2001:db8::7";
        bmc.serial = "SN7";
        EXPECT_EQ(store.BeginRun(RunOn("bmc7")), 1);
        store.SetBmc(1, bmc);
        EXPECT_EQ(store.BeginRun(RunOn("bmc8")), 2);
        EXPECT_EQ(store.BeginRun(RunOn("2001:DB8:0::7")), 3);
        EXPECT_EQ(store.BeginRun(RunOn("bmc7")), 4);
    }
    EXPECT_THAT(Numbers(""), ElementsAre(4, 3, 2, 1));
    EXPECT_THAT(Numbers("", 2), ElementsAre(4, 3));
    EXPECT_THAT(Numbers("BMC7"), ElementsAre(4, 1));
    EXPECT_THAT(Numbers("2001:db8::0007"), ElementsAre(3, 1));
    EXPECT_THAT(Numbers("SN7"), ElementsAre(1));
    EXPECT_THAT(Numbers("sn"), IsEmpty());
}

TEST_F(StoreTest, NumbersAreNeverGivenTwice) {
    { Store(folder).BeginRun(RunOn("bmc7")); }
    Execute("DELETE FROM runs");
    EXPECT_EQ(Store(folder).BeginRun(RunOn("bmc7")), 2);
}

TEST_F(StoreTest, ARunLivesAsLongAsItsProcess) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t process = Process([&] {
        Store store(folder);
        store.BeginRun(RunOn("bmc7"));
        store.BeginRun(RunOn("bmc8"));
        (void)!write(ready[1], "+", 1);
        while (true) pause();
        return true;
    });
    char word = 0;
    ASSERT_EQ(read(ready[0], &word, 1), 1);
    const Store store(folder);
    EXPECT_TRUE(store.IsLive(1));
    EXPECT_TRUE(store.IsLive(2));
    EXPECT_FALSE(store.IsLive(3));
    kill(process, SIGKILL);
    Ended(process);
    EXPECT_FALSE(store.IsLive(1));
    EXPECT_EQ(store.FindRun(2)->endedAt, "");
}

TEST_F(StoreTest, AProcessSeesItsOwnRunLiveAndEndsItWithItsStore) {
    {
        Store store(folder);
        EXPECT_TRUE(store.IsLive(store.BeginRun(RunOn("bmc7"))));
    }
    EXPECT_FALSE(Store(folder).IsLive(1));
}

// Killed at a different moment each round: whatever was written stands, and all of it can be read.
TEST_F(StoreTest, AKilledProcessLosesNothingThatItHasWritten) {
    for (int round = 0; round < 20; ++round) {
        int progress[2];
        ASSERT_EQ(pipe(progress), 0);
        const pid_t process = Process([&] {
            Store store(folder);
            for (std::uint64_t n = 1; true; ++n) {
                const Id run = store.BeginRun(RunOn("bmc7"));
                store.BeginStep(run, "download");
                const Id archive = store.BeginArchive(run, "ffdc.tar.gz");
                store.SetPartial(archive, "/part", "\"v1\"", n);
                (void)!write(progress[1], &run, sizeof run);
            }
            return true;
        });
        Id last = 0;
        for (int n = 0; n <= round; ++n) {
            ASSERT_EQ(read(progress[0], &last, sizeof last), static_cast<ssize_t>(sizeof last));
        }
        kill(process, SIGKILL);
        Ended(process);
        close(progress[1]);
        while (read(progress[0], &last, sizeof last) > 0) continue;
        close(progress[0]);

        Store store(folder);
        ASSERT_EQ(Integrity(), "ok");
        ASSERT_EQ(store.Archives(last).size(), 1U);
        EXPECT_EQ(store.Archives(last)[0].validator, "\"v1\"");
        EXPECT_EQ(store.Steps(last).size(), 1U);
        EXPECT_FALSE(store.IsLive(last));
    }
}

TEST_F(StoreTest, ASecondStoreOfAProcessTakesNothingFromTheFirst) {
    int turn[2];
    ASSERT_EQ(pipe(turn), 0);
    // Forked before the database is open: SQLite's notes on an open one do not bear being copied.
    const pid_t other = Process([&] {
        char word = 0;
        return read(turn[0], &word, 1) == 1 && Numbers("bmc7").size() == 1;
    });
    Store store(folder);
    store.BeginRun(RunOn("bmc7"));
    EXPECT_EQ(Numbers("bmc7").size(), 1U);

    ASSERT_EQ(write(turn[1], "", 1), 1);
    EXPECT_EQ(Ended(other), 0);

    // The other one was not the last to go, so the log that this one writes to is there.
    EXPECT_EQ(access((file + "-wal").c_str(), F_OK), 0);
    close(turn[0]);
    close(turn[1]);
}

TEST_F(StoreTest, ProcessesMakeAndWriteItSideBySide) {
    constexpr int kProcesses = 6;
    constexpr int kRuns = 30;
    std::vector<pid_t> processes;
    for (int n = 0; n < kProcesses; ++n) {
        processes.push_back(Process([&] {
            for (int i = 0; i < kRuns; ++i) {
                Store store(folder);
                const Id run = store.BeginRun(RunOn("bmc7"));
                store.BeginStep(run, "preflight");
                store.EndStep(run, 0, 0, "");
                store.EndRun(run, 0, "downloaded", "");
            }
            return true;
        }));
    }
    for (const pid_t process : processes) EXPECT_EQ(Ended(process), 0);
    EXPECT_EQ(Numbers("bmc7", 1000).size(), std::size_t{kProcesses} * kRuns);
    EXPECT_EQ(Integrity(), "ok");
}

TEST_F(StoreTest, ProcessesMeetAtItsMaking) {
    for (int round = 0; round < 20; ++round) {
        const std::string fresh = folder + std::to_string(round);
        int start[2];
        ASSERT_EQ(pipe(start), 0);
        std::vector<pid_t> processes;
        for (int n = 0; n < 6; ++n) {
            processes.push_back(Process([&] {
                char word = 0;
                close(start[1]);
                (void)!read(start[0], &word, 1);
                return Store(fresh).BeginRun(RunOn("bmc7")) > 0;
            }));
        }
        close(start[0]);
        close(start[1]);
        for (const pid_t process : processes) EXPECT_EQ(Ended(process), 0);
        EXPECT_EQ(Store(fresh).Runs("", 100).size(), 6U);
    }
}

TEST_F(StoreTest, WaitsForAnotherProcessAndInAHurryDoesNot) {
    std::atomic<bool> hurry{false};
    Store store(folder, &hurry);
    SQLite::Database other(file, SQLite::OPEN_READWRITE);
    other.exec("BEGIN IMMEDIATE");
    std::thread ends([&other] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        other.exec("COMMIT");
    });
    EXPECT_EQ(store.BeginRun(RunOn("bmc7")), 1);
    ends.join();

    other.exec("BEGIN IMMEDIATE");
    hurry = true;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(Error([&] { store.BeginRun(RunOn("bmc8")); }), HasSubstr("database is locked"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
}

TEST_F(StoreTest, WhatIsNoDatabaseIsRefusedAndLeftAlone) {
    { const Store made(folder); }
    const std::string nonsense(5000, 'x');
    place.Write("state/history.db", nonsense);
    EXPECT_THAT(Error([&] { Store store(folder); }),
                testing::AllOf(HasSubstr(file), HasSubstr("file is not a database")));
    EXPECT_EQ(Content(file), nonsense);
}

TEST_F(StoreTest, ADamagedDatabaseIsAnErrorAndNoCrash) {
    {
        Store store(folder);
        for (int i = 0; i < 200; ++i) {
            store.EndRun(store.BeginRun(RunOn("bmc" + std::to_string(i))), 0, "downloaded", "");
        }
    }
    std::string content = Content(file);
    ASSERT_GT(content.size(), 20000U);
    for (std::size_t i = 4096; i < content.size(); ++i) content[i] = static_cast<char>(i * 31);
    place.Write("state/history.db", content);
    EXPECT_THAT(Error([&] {
                    Store store(folder);
                    store.BeginRun(RunOn("bmc7"));
                    store.Runs("", 1000);
                }),
                HasSubstr("malformed"));
}

TEST_F(StoreTest, ANewerSchemaIsRefusedAndLeftAlone) {
    { Store(folder).BeginRun(RunOn("bmc7")); }
    Execute("PRAGMA user_version = 3");
    const std::string before = Content(file);
    EXPECT_THAT(Error([&] { Store store(folder); }),
                HasSubstr("was written by a newer kemffdc (schema 3, this one knows 2)"));
    EXPECT_EQ(Content(file), before);
}

// What release 1 of the history made, as far as the step to the next one meets it.
TEST_F(StoreTest, AnOlderSchemaIsBroughtUpToDateAndKeepsItsRuns) {
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    Execute(Kemffdc::History::kMigrations[0]);
    Execute(
        "INSERT INTO runs (command, tool_version, host, begun_at, task) VALUES ('collect', "
        "'1.0.0', 'bmc7', '2026-01-31T23:59:58Z', '/tasks/1')");
    Execute("PRAGMA user_version = 1");
    {
        Store store(folder);
        EXPECT_EQ(store.FindRun(1)->task, "/tasks/1");
        EXPECT_EQ(store.FindRun(1)->fleet, 0);
        EXPECT_EQ(store.FindRun(1)->operation, "");
        RunRow attempt = RunOn("bmc7");
        attempt.operation = "diagnostic-data";
        EXPECT_EQ(store.FindRun(store.BeginRun(attempt))->operation, "diagnostic-data");
        store.SetOperation(2, "tree");
        EXPECT_EQ(store.FindRun(2)->operation, "tree");
    }
    SQLite::Database database(file, SQLite::OPEN_READONLY);
    EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), 2);
    EXPECT_EQ(Integrity(), "ok");
}

TEST_F(StoreTest, AnotherProgramsDatabaseIsRefusedAndLeftAlone) {
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    Execute("CREATE TABLE runs (id INTEGER)");
    const std::string before = Content(file);
    EXPECT_THAT(Error([&] { Store store(folder); }), HasSubstr("another program's database"));
    EXPECT_EQ(Content(file), before);
}

TEST_F(StoreTest, OnAFullDiskAnOperationFailsAndLaterOnesDoNot) {
    Store store(folder);
    const Id run = store.BeginRun(RunOn("bmc7"));
    {
        const DiskFaults faults("write:" + file + ":*:ENOSPC");
        EXPECT_THAT(Error([&] { store.BeginStep(run, "export"); }),
                    HasSubstr("database or disk is full"));
        EXPECT_GT(faults.Played(), 0);
    }
    EXPECT_THAT(store.Steps(run), IsEmpty());
    store.BeginStep(run, "export");
    EXPECT_EQ(store.Steps(run).size(), 1U);
}

TEST_F(StoreTest, OnABrokenDiskAnOperationFails) {
    Store store(folder);
    const DiskFaults faults("write:" + file + ":*:EIO");
    EXPECT_THAT(Error([&] { store.BeginRun(RunOn("bmc7")); }), HasSubstr("disk I/O error"));
}

TEST_F(StoreTest, AReadOnlyFolderIsAnError) {
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    const DiskFaults faults("open:" + folder + ":*:EROFS");
    EXPECT_THAT(Error([&] { Store store(folder); }),
                testing::AllOf(HasSubstr(file), HasSubstr("Read-only file system")));
}

TEST_F(StoreTest, ADiskThatHasBecomeReadOnlyIsAnError) {
    { Store(folder).BeginRun(RunOn("bmc7")); }
    const DiskFaults faults("write:" + file + ":*:EROFS");
    EXPECT_THAT(Error([&] { Store(folder).BeginRun(RunOn("bmc8")); }), HasSubstr(file));
}

TEST_F(StoreTest, NoSecretGetsIn) {
    const std::string secret = "Tr0ub4dor&3";
    Varnex::HideInLog(secret);
    RunRow run = RunOn("bmc-" + secret);
    run.user = secret;
    run.exportUri = "sftp://" + secret + "@store/";
    {
        Store store(folder);
        const Id id = store.BeginRun(run);
        store.SetBmc(id, {"", "", "", secret, "", "", secret, "", "", ""});
        store.SetTask(id, "/tasks/" + secret, secret);
        store.SetBmcPath(id, "/" + secret);
        store.BeginStep(id, secret);
        store.EndStep(id, 1, 0, "said " + secret);
        const Id archive = store.BeginArchive(id, secret);
        store.SetPartial(archive, secret, secret, 1);
        store.FailArchive(archive, secret);
        store.EndRun(id, 3, secret, "wrong password " + secret);
        for (const char* end : {"", "-wal"}) {
            EXPECT_THAT(Content(file + end), testing::Not(HasSubstr(secret))) << end;
        }
        EXPECT_EQ(store.FindRun(id)->reason, "wrong password **********");
    }
    EXPECT_THAT(Content(file), testing::Not(HasSubstr(secret)));
}

}  // namespace
