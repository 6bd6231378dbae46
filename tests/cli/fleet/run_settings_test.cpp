// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/RunSettings.h"

#include <gmock/gmock.h>

namespace {

using Kemffdc::Options;
using Kemffdc::Origin;
using Kemffdc::Part;
using Kemffdc::Fleet::FleetOptions;
using Kemffdc::Fleet::PaceOf;
using Kemffdc::Fleet::PreferLine;
using Kemffdc::Fleet::RunSettings;
using Kemffdc::Fleet::SettingsFromJson;
using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(RunSettings, AreInTheJournalWhatTheyWere) {
    RunSettings settings;
    settings.pace.gathering = 400;
    settings.pace.retryPause = 7;
    settings.pace.runDeadline = 3600;
    settings.pace.metrics = "/var/lib/\"metrics\".prom";
    settings.passwordFiles = {{1, "/home/me/.bmc"}, {17, "/home/me/.other"}};
    settings.exportPasswordFiles = {{2, "/home/me/.store"}};

    const RunSettings read = SettingsFromJson(ToJson(settings));

    EXPECT_EQ(read.pace.gathering, 400);
    EXPECT_EQ(read.pace.retryPause, 7);
    EXPECT_EQ(read.pace.runDeadline, 3600);
    EXPECT_EQ(read.pace.transfers, FleetOptions().transfers);
    EXPECT_EQ(read.pace.metrics, settings.pace.metrics);
    EXPECT_EQ(read.passwordFiles, settings.passwordFiles);
    EXPECT_EQ(read.exportPasswordFiles, settings.exportPasswordFiles);
}

TEST(RunSettings, WhatIsNotThereIsSoByDefault) {
    for (const char* text : {"", "{}", "[]", "{\"gathering\":\"many\",\"password_files\":3}"}) {
        const RunSettings read = SettingsFromJson(text);
        EXPECT_EQ(read.pace.gathering, FleetOptions().gathering) << text;
        EXPECT_TRUE(read.passwordFiles.empty()) << text;
    }
}

TEST(RunSettings, TheLineOfAResumeCountsMoreAndAFileDoesNot) {
    FleetOptions begunWith;
    begunWith.gathering = 400;
    begunWith.transfers = 4;
    Options line;
    Part<FleetOptions>(line).gathering = 100;
    Part<FleetOptions>(line).transfers = 16;
    line.settings["--gathering"] = {Origin::kCommandLine, "--gathering", ""};
    line.settings["--transfers"] = {Origin::kUserFile, "kemffdc.conf:3", "defaults"};

    PreferLine(line, begunWith);

    EXPECT_EQ(begunWith.gathering, 100);
    EXPECT_EQ(begunWith.transfers, 4);
}

TEST(RunSettings, SayThePace) {
    FleetOptions options;
    options.startsPerSecond = 20;
    options.hostDeadline = 90;

    EXPECT_EQ(PaceOf(options).startGap, milliseconds(50));
    EXPECT_EQ(PaceOf(options).hostDeadline, seconds(90));
    EXPECT_EQ(PaceOf(options).pause, seconds(10));
}

}  // namespace
