// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/WorkerLine.h"

#include <gtest/gtest.h>

namespace {

using namespace Kemffdc::Fleet;
using Kemffdc::History::HostState;

template <class Told>
Told Read(const std::string& line) {
    const auto read = ReadWorkerLine(line);
    if (!read || !std::holds_alternative<Told>(*read)) {
        ADD_FAILURE() << line << " is read as something else";
        return {};
    }
    return std::get<Told>(*read);
}

TEST(WorkerLine, WhatConcernsTheConductorIsRead) {
    EXPECT_EQ(Read<StateTold>(R"({"event":"host-state","state":"reached"})").state,
              HostState::kReached);
    EXPECT_EQ(Read<ChannelTold>(R"({"event":"way-chosen","channel":"cim"})").channel, "cim");
    EXPECT_EQ(Read<ChannelTold>(R"({"event":"run-begun","channel":null})").channel, "");
    EXPECT_EQ(Read<OperationTold>(R"({"event":"operation-chosen","operation":"tree","reason":"x"})")
                  .operation,
              "tree");
    const auto work = Read<WorkTold>(R"({"event":"work","percent":40,"message":"Reading"})");
    EXPECT_EQ(work.percent, 40);
    EXPECT_EQ(work.message, "Reading");
    EXPECT_EQ(Read<WorkTold>(R"({"event":"work","percent":null})").percent, std::nullopt);
    const auto bytes = Read<BytesTold>(R"({"event":"bytes","bytes":5000000000,"expected":null})");
    EXPECT_EQ(bytes.bytes, 5000000000U);
    EXPECT_EQ(bytes.expected, 0U);
    Read<TurnAsked>(R"({"event":"turn"})");
    Read<SomethingElse>(R"({"event":"of a later version"})");
}

TEST(WorkerLine, WhatWasDeliveredHasComeWhole) {
    const auto told = Read<BytesTold>(R"({"event":"delivered","path":"/x","size":31745})");
    EXPECT_EQ(told.bytes, 31745U);
    EXPECT_EQ(told.expected, 31745U);
    (void)Read<SomethingElse>(R"({"event":"delivered","path":null,"size":null})");
}

TEST(WorkerLine, TheLastLineIsTheResult) {
    const auto result = Read<ResultTold>(
        R"({"schema":1,"exit_code":3,"outcome":"unreachable","reason":"Silent.","retryable":true})");

    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.outcome, "unreachable");
    EXPECT_EQ(result.reason, "Silent.");
    EXPECT_TRUE(result.retryable);
    EXPECT_EQ(Read<ResultTold>(
                  R"({"exit_code":0,"outcome":"downloaded","reason":null,"retryable":false})")
                  .reason,
              "");
}

TEST(WorkerLine, AnythingElseIsNoWorkersLine) {
    for (const std::string line :
         {"", "Segmentation fault", "[]", "42", "{\"event\":\"work\"", "{}", "{\"exit_code\":0}",
          "{\"outcome\":\"downloaded\",\"exit_code\":\"0\"}",
          "{\"outcome\":\"downloaded\",\"exit_code\":1e99}",
          "{\"event\":\"host-state\",\"state\":\"flying\"}", "{\"event\":\"turn\"} {}"}) {
        EXPECT_FALSE(ReadWorkerLine(line)) << line;
    }
    EXPECT_FALSE(ReadWorkerLine(std::string(100000, '[')));
}

}  // namespace
