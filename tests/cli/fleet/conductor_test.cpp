// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Conductor.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/fleet/Arguments.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::Secret;
using Kemffdc::Fleet::Audience;
using Kemffdc::Fleet::Conductor;
using Kemffdc::Fleet::Scene;
using Kemffdc::History::FleetHostRow;
using Kemffdc::History::FleetJournal;
using Kemffdc::History::FleetRunRow;
using Kemffdc::History::HostState;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// A worker that plays the part which its first line names.
constexpr char kWorker[] = R"sh(
read line
state() { echo "{\"event\":\"host-state\",\"state\":\"$1\"}"; }
end() { echo "{\"exit_code\":$1,\"outcome\":\"$2\",\"retryable\":$3,\"reason\":\"Because.\"}"; exit $1; }
turn() { echo '{"event":"turn"}'; read word || end 130 interrupted true; [ "$word" = go ]; }
case "$line" in
    good) state reached; state gathering; echo '{"event":"work","percent":50,"message":"Half"}'
          turn; state transferring; echo '{"event":"bytes","bytes":10,"expected":10}'
          end 0 downloaded false ;;
    slow) state reached; turn; sleep 0.05; end 0 downloaded false ;;
    wrong) end 3 login-refused false ;;
    flaky*) file=${line#flaky }; if [ -e "$file" ]; then state reached; end 0 checked false; fi
          : > "$file"; end 3 unreachable true ;;
    never) end 3 unreachable true ;;
    unsure) end 4 unsupported false ;;
    segv) kill -SEGV $$ ;;
    mute) echo 'out of luck' >&2; exit 7 ;;
    babble) echo 'Hello, World!'; sleep 300 ;;
    waits) state reached; read word; end 130 interrupted true ;;
    deaf) state reached; sleep 300 ;;
esac
)sh";

class Watcher : public Audience {
public:
    void Begun(const Scene&) override { ++begun; }
    void Changed(const Scene& scene, std::size_t host) override {
        const HostState state = scene.hosts[host].state;
        auto& seen = states[scene.hosts[host].name];
        if (seen.empty() || seen.back() != state) seen.push_back(state);
        if (onChange) onChange(state);
    }
    void Tick(const Scene&) override {
        ++ticks;
        if (onTick) onTick();
    }
    void Noted(const std::string& sentence) override { notes.push_back(sentence); }
    void Ended(const Scene&, int) override {}

    int begun = 0;
    int ticks = 0;
    std::map<std::string, std::vector<HostState>> states;
    std::vector<std::string> notes;
    std::function<void()> onTick;
    std::function<void(HostState)> onChange;
};

class ConductorTest : public testing::Test {
protected:
    void SetUp() override {
        (void)std::signal(SIGPIPE, SIG_IGN);
        job.worker = {"/bin/sh", "-c", kWorker, "worker"};
        job.pace.startGap = milliseconds(1);
        job.pace.pause = milliseconds(50);
        job.hello = [](const FleetHostRow& host) { return Secret(host.host); };
    }

    // A host whose worker plays this part; with a credential of its own unless one is named.
    void Add(const std::string& part, const std::string& credential = "") {
        FleetHostRow host;
        host.number = static_cast<int>(job.hosts.size()) + 1;
        host.name = "bmc" + std::to_string(host.number);
        host.host = part;
        host.credential = credential.empty() ? "of " + host.name : credential;
        host.channel = "redfish";
        host.arguments = "[]";
        job.logins.push_back(host.credential);
        job.hosts.push_back(host);
    }

    int Run() {
        FleetRunRow run;
        run.command = "collect";
        run.toolVersion = "1.0.0";
        run.settings = "{}";
        run.folder = folder.Path();
        run.id = journal.BeginFleet(run, job.hosts);
        job.run = run;
        conductor = std::make_unique<Conductor>(std::move(job), journal, watcher);
        const auto begun = steady_clock::now();
        const int code = conductor->Run();
        took = steady_clock::now() - begun;
        return code;
    }

    std::string OutcomeOf(std::size_t host) const {
        return conductor->TheScene().hosts.at(host).outcome;
    }
    std::string ReasonOf(std::size_t host) const {
        return conductor->TheScene().hosts.at(host).reason;
    }

    TempFolder folder;
    FleetJournal journal{folder.Path() + "/state"};
    Watcher watcher;
    Conductor::Job job;
    std::unique_ptr<Conductor> conductor;
    steady_clock::duration took{};
};

TEST_F(ConductorTest, ARunWhoseHostsAllDoWellEndsWithNought) {
    for (int host = 0; host < 5; ++host) Add("good");

    EXPECT_EQ(Run(), Kemffdc::kDone);

    EXPECT_EQ(watcher.begun, 1);
    EXPECT_THAT(watcher.states["bmc3"],
                ElementsAre(HostState::kStarting, HostState::kReached, HostState::kGathering,
                            HostState::kTransferring, HostState::kDone));
    EXPECT_EQ(conductor->TheScene().hosts[2].bytes, 10U);
    EXPECT_EQ(conductor->TheScene().hosts[2].attempts, 1);
    EXPECT_TRUE(conductor->TheScene().ended);
}

TEST_F(ConductorTest, SomeAndNoneHaveCodesOfTheirOwn) {
    Add("good");
    Add("unsure");
    EXPECT_EQ(Run(), Kemffdc::kFleetSome);

    job = {};
    SetUp();
    Add("unsure");
    EXPECT_EQ(Run(), Kemffdc::kFleetNone);
}

TEST_F(ConductorTest, AWorkerThatDiesIsTheOutcomeOfItsHostAlone) {
    job.pace.retries = 0;
    for (const char* part : {"good", "segv", "mute", "babble", "good"}) Add(part);

    EXPECT_EQ(Run(), Kemffdc::kFleetSome);

    EXPECT_EQ(OutcomeOf(0), "downloaded");
    for (const std::size_t host : {1U, 2U, 3U}) EXPECT_EQ(OutcomeOf(host), "crashed");
    EXPECT_THAT(ReasonOf(1), HasSubstr("signal 11 (Segmentation fault)"));
    EXPECT_EQ(ReasonOf(2),
              "The worker ended with exit code 7 and without a result. It wrote: out of luck");
    EXPECT_EQ(ReasonOf(3), "The worker said what no worker says, and was ended.");
    EXPECT_EQ(OutcomeOf(4), "downloaded");
    const auto rows = journal.Hosts(conductor->TheScene().fleet);
    EXPECT_EQ(rows[1].state, HostState::kFailed);
    EXPECT_EQ(rows[1].outcome, "crashed");
}

TEST_F(ConductorTest, AProgramThatCannotBeStartedIsAnOutcomeToo) {
    job.pace.retries = 0;
    job.worker = {"/nonexistent/worker"};
    Add("good");

    EXPECT_EQ(Run(), Kemffdc::kFleetNone);
    EXPECT_EQ(ReasonOf(0), "No worker can be started: No such file or directory.");
}

TEST_F(ConductorTest, WhatIsRetryableIsTriedAgain) {
    Add("flaky " + folder.Path() + "/once");
    Add("never");
    Add("unsure");

    EXPECT_EQ(Run(), Kemffdc::kFleetSome);

    EXPECT_EQ(OutcomeOf(0), "checked");
    const auto& hosts = conductor->TheScene().hosts;
    EXPECT_EQ(hosts[0].attempts, 2);
    EXPECT_EQ(hosts[1].attempts, 3);
    EXPECT_EQ(hosts[2].attempts, 1);
    EXPECT_THAT(watcher.states["bmc1"],
                ElementsAre(HostState::kStarting, HostState::kPausing, HostState::kStarting,
                            HostState::kReached, HostState::kDone));
    bool told = false;
    for (const auto& row : journal.States(conductor->TheScene().fleet)) {
        told |= row.state == HostState::kPausing && row.detail == "Another try in 1 s.";
    }
    EXPECT_TRUE(told);
}

TEST_F(ConductorTest, NoMoreDownloadThanMay) {
    job.pace.transfers = 2;
    for (int host = 0; host < 10; ++host) Add("slow");

    EXPECT_EQ(Run(), Kemffdc::kDone);

    EXPECT_GE(took, milliseconds(5 * 50));
}

TEST_F(ConductorTest, TwoRefusalsStopTheOthersAndAreTold) {
    for (int host = 0; host < 10; ++host) Add("wrong", "lab");

    EXPECT_EQ(Run(), Kemffdc::kFleetNone);

    std::size_t tried = 0;
    const auto rows = journal.Hosts(conductor->TheScene().fleet);
    for (std::size_t host = 0; host < 10; ++host) {
        const auto& shown = conductor->TheScene().hosts[host];
        if (shown.attempts > 0) {
            ++tried;
        } else {
            EXPECT_EQ(shown.outcome, "guarded");
            EXPECT_EQ(rows[host].state, HostState::kStopped);
            EXPECT_EQ(rows[host].outcome, "guarded");
        }
    }
    EXPECT_LE(tried, 3U);
    ASSERT_THAT(watcher.notes, SizeIs(1));
    EXPECT_THAT(watcher.notes[0], HasSubstr("The credential lab has been refused twice"));
}

TEST_F(ConductorTest, AHostsDeadlineEndsItsWorker) {
    job.pace.hostDeadline = milliseconds(300);
    Add("waits");
    Add("deaf");
    Add("good");

    EXPECT_EQ(Run(), Kemffdc::kFleetSome);

    EXPECT_LT(took, seconds(4));
    EXPECT_EQ(OutcomeOf(0), "deadline");
    EXPECT_EQ(OutcomeOf(1), "deadline");
    EXPECT_EQ(journal.Hosts(conductor->TheScene().fleet)[0].state, HostState::kStopped);
}

TEST_F(ConductorTest, TheRunsDeadlineLeavesTheRestUntried) {
    job.pace.runDeadline = milliseconds(300);
    job.pace.gathering = 1;
    Add("waits");
    Add("good");

    EXPECT_EQ(Run(), Kemffdc::kFleetNone);

    EXPECT_EQ(OutcomeOf(0), "deadline");
    EXPECT_EQ(OutcomeOf(1), "not-tried");
    EXPECT_EQ(ReasonOf(1), "Not done at the deadline of the run.");
}

TEST_F(ConductorTest, ASignalEndsAllWithinAboutASecond) {
    job.pace.gathering = 6;
    for (const char* part : {"good", "waits", "waits", "deaf", "deaf", "waits", "waits", "waits"}) {
        Add(part);
    }
    steady_clock::time_point sent{};
    watcher.onTick = [&] {
        if (watcher.states["bmc7"].size() < 2 || sent != steady_clock::time_point()) return;
        sent = steady_clock::now();
        kill(getpid(), SIGTERM);
    };

    EXPECT_EQ(Run(), Kemffdc::kInterrupted);

    EXPECT_LT(steady_clock::now() - sent, seconds(3));
    EXPECT_EQ(OutcomeOf(0), "downloaded");
    EXPECT_EQ(OutcomeOf(1), "interrupted");
    EXPECT_EQ(OutcomeOf(3), "interrupted");
    EXPECT_EQ(OutcomeOf(7), "not-tried");
    const auto rows = journal.Hosts(conductor->TheScene().fleet);
    for (std::size_t host = 1; host < rows.size(); ++host) {
        EXPECT_EQ(rows[host].state, HostState::kStopped) << host;
    }
    EXPECT_THAT(watcher.notes, Contains(HasSubstr("kemffdc fleet resume 1 goes on with it")));
}

TEST_F(ConductorTest, ASecondSignalWaitsForNobody) {
    Add("deaf");
    int sent = 0;
    steady_clock::time_point first{};
    watcher.onTick = [&] {
        if (watcher.states["bmc1"].size() < 2 || sent == 2) return;
        if (++sent == 1) first = steady_clock::now();
        kill(getpid(), SIGINT);
    };

    EXPECT_EQ(Run(), Kemffdc::kInterrupted);

    EXPECT_LT(steady_clock::now() - first, milliseconds(800));
    EXPECT_EQ(OutcomeOf(0), "interrupted");
}

// The tick has come due by the time that the end is seen, and can no longer be taken back.
TEST_F(ConductorTest, ARunEndsThoughATickComesWithItsLastHost) {
    Add("good");
    watcher.onChange = [](HostState state) {
        if (state == HostState::kDone) std::this_thread::sleep_for(milliseconds(300));
    };
    watcher.onTick = [this] {
        if (watcher.ticks == 40) throw std::runtime_error("the run goes on ticking");
    };

    EXPECT_EQ(Run(), Kemffdc::kDone);
}

TEST_F(ConductorTest, WhatIsDoneIsNotTouched) {
    Add("wrong");
    Add("good");
    job.hosts[0].state = HostState::kDone;
    job.hosts[0].outcome = "downloaded";

    EXPECT_EQ(Run(), Kemffdc::kDone);

    EXPECT_THAT(watcher.states["bmc1"], IsEmpty());
    EXPECT_EQ(OutcomeOf(0), "downloaded");
}

TEST(Arguments, AreKeptAsJson) {
    const Kemffdc::Fleet::Arguments arguments{"collect", "--user", "a \"b\"", ""};

    EXPECT_EQ(Kemffdc::Fleet::FromJson(Kemffdc::Fleet::ToJson(arguments)), arguments);
    EXPECT_THAT(Kemffdc::Fleet::FromJson("{\"a\":1}"), IsEmpty());
    EXPECT_THAT(Kemffdc::Fleet::FromJson("[1]"), IsEmpty());
    EXPECT_THAT(Kemffdc::Fleet::FromJson("nonsense"), IsEmpty());
}

TEST(Arguments, SayHowLongARunMayTake) {
    using Kemffdc::Fleet::PatienceOf;

    EXPECT_EQ(PatienceOf({"collect", "10.0.0.1", "--deadline=45m"}), std::chrono::minutes(45));
    EXPECT_EQ(PatienceOf({"collect", "10.0.0.1", "--deadline=0"}), seconds(0));
    EXPECT_EQ(PatienceOf({"collect", "10.0.0.1"}), std::chrono::hours(2));
    EXPECT_EQ(PatienceOf({"collect", "10.0.0.1", "--deadline="}), std::chrono::hours(2));
}

}  // namespace
