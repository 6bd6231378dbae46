// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Estimate.h"

#include <gmock/gmock.h>

#include "cli/fleet/MadeScene.h"

namespace {

using namespace std::chrono_literals;
using namespace MadeScene;
using Kemffdc::Fleet::Throughput;
using Kemffdc::Fleet::TimeLeft;
using Kemffdc::Fleet::TimeLeftText;

TEST(TimeLeft, IsUnknownBeforeAHostIsDone) {
    Scene scene = RunOf(60);
    AddMany(scene, 1, 3, HostState::kGathering, 1, 0);
    Add(scene, "bmc004", HostState::kFailed, 2, 0);  // a wrong password says nothing of the others
    EXPECT_EQ(TimeLeft(scene), std::nullopt);
}

TEST(TimeLeft, GoesByTheHostsThatAreDone) {
    Scene scene = RunOf(40);
    AddMany(scene, 1, 10, HostState::kDone, 40, 0);
    AddMany(scene, 11, 12, HostState::kGathering, 20, 20);  // each takes 40 s
    EXPECT_EQ(TimeLeft(scene), 20s);
}

TEST(TimeLeft, GoesByThePaceWhereManyWait) {
    Scene scene = RunOf(100);
    AddMany(scene, 1, 20, HostState::kDone, 90, 60);  // 20 in the last 30 s
    AddMany(scene, 21, 120, HostState::kQueued);
    EXPECT_EQ(TimeLeft(scene), 150s);
}

TEST(TimeLeft, IsUnknownWhereTheRestTakesLongerThanTheOthersDid) {
    Scene scene = RunOf(300);
    AddMany(scene, 1, 10, HostState::kDone, 290, 280);
    Add(scene, "bmc011", HostState::kGathering, 1, 0);
    EXPECT_EQ(TimeLeft(scene), std::nullopt);
}

TEST(TimeLeft, IsUnknownWhereNothingHasEndedForLong) {
    Scene scene = RunOf(300);
    AddMany(scene, 1, 10, HostState::kDone, 10, 0);
    Add(scene, "bmc011", HostState::kGathering, 299, 298);
    EXPECT_EQ(TimeLeft(scene), std::nullopt);
}

TEST(TimeLeft, LeavesOutWhatAnEarlierRunHasDone) {
    Scene scene = RunOf(10);
    AddMany(scene, 1, 10, HostState::kDone, -500);
    for (SceneHost& host : scene.hosts) host.begun = At(-600);
    Add(scene, "bmc011", HostState::kGathering, 1, 0);
    Add(scene, "bmc012", HostState::kFailed, 9, 0);
    EXPECT_EQ(TimeLeft(scene), std::nullopt);
}

struct LeftRow {
    std::optional<std::chrono::seconds> left;
    const char* text;
};

TEST(TimeLeftText, IsNoMoreExactThanTheEstimate) {
    const LeftRow rows[] = {
        {std::nullopt, "time left unknown"}, {0s, "less than a minute left"},
        {59s, "less than a minute left"},    {60s, "about 1 min left"},
        {100s, "about 2 min left"},          {59min + 20s, "about 59 min left"},
        {60min, "about 1 h left"},           {84min, "about 1 h 20 min left"},
        {115min, "about 2 h left"},
    };
    for (const LeftRow& row : rows) EXPECT_EQ(TimeLeftText(row.left), row.text);
}

TEST(Throughput, CountsAllHostsOverTheLastFiveSeconds) {
    Scene scene = RunOf(0);
    AddMany(scene, 1, 2, HostState::kTransferring, 0, 0);
    Throughput throughput;
    EXPECT_EQ(throughput.BytesPerSecond(), 0U);
    for (int second = 0; second <= 20; ++second) {
        scene.now = At(second);
        scene.hosts[0].bytes += 1000;
        scene.hosts[1].bytes += second > 15 ? 500 : 0;
        throughput.See(scene);
        if (second == 15) {
            EXPECT_EQ(throughput.BytesPerSecond(), 1000U);
        }
    }
    EXPECT_EQ(throughput.BytesPerSecond(), 1500U);
}

TEST(Throughput, LosesNothingByAHostThatBeginsAnew) {
    Scene scene = RunOf(0);
    Add(scene, "bmc001", HostState::kTransferring, 0, 0).bytes = 5000;
    Throughput throughput;
    throughput.See(scene);
    scene.now = At(1);
    scene.hosts[0].bytes = 0;
    throughput.See(scene);
    scene.now = At(2);
    scene.hosts[0].bytes = 3000;
    throughput.See(scene);
    EXPECT_EQ(throughput.BytesPerSecond(), 1500U);
}

TEST(Throughput, CountsNotWhatWasThereBefore) {
    Scene scene = RunOf(0);
    Add(scene, "bmc001", HostState::kDone, -10, -20).bytes = 5000;
    Throughput throughput;
    throughput.See(scene);
    scene.now = At(1);
    throughput.See(scene);
    EXPECT_EQ(throughput.BytesPerSecond(), 0U);
}

TEST(Throughput, StandsAClockThatIsSetBack) {
    Scene scene = RunOf(0);
    Add(scene, "bmc001", HostState::kTransferring, 0, 0);
    Throughput throughput;
    throughput.See(scene);
    scene.now = At(-100);
    scene.hosts[0].bytes = 1000;
    throughput.See(scene);
    EXPECT_EQ(throughput.BytesPerSecond(), 0U);
}

}  // namespace
