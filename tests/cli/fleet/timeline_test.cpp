// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Timeline.h"

#include <gmock/gmock.h>

namespace {

using Kemffdc::Fleet::TimeAxis;
using Kemffdc::Fleet::TimelineLayout;
using testing::ElementsAre;

std::vector<std::string> Labels(const TimeAxis& axis, std::size_t most) {
    std::vector<std::string> labels;
    for (const TimeAxis::Tick& tick : axis.Ticks(most)) labels.push_back(tick.label);
    return labels;
}

TEST(FleetTimeAxis, TimesAreSpreadOverItsLength) {
    const TimeAxis axis({1000, 1050, 1100}, {}, 200);
    EXPECT_DOUBLE_EQ(axis.At(1000), 0);
    EXPECT_DOUBLE_EQ(axis.At(1025), 50);
    EXPECT_DOUBLE_EQ(axis.At(1100), 200);
    EXPECT_TRUE(axis.Breaks().empty());
}

TEST(FleetTimeAxis, WhatLiesOutsideIsAtItsEnds) {
    const TimeAxis axis({1000, 1100}, {}, 200);
    EXPECT_DOUBLE_EQ(axis.At(0), 0);
    EXPECT_DOUBLE_EQ(axis.At(9999), 200);
}

TEST(FleetTimeAxis, AMomentIsNoLength) {
    const TimeAxis axis({1000, 1000}, {}, 200);
    EXPECT_DOUBLE_EQ(axis.At(1000), 0);
    EXPECT_FALSE(axis.Ticks(5).empty());
}

TEST(FleetTimeAxis, TicksStandAtRoundTimes) {
    EXPECT_THAT(Labels(TimeAxis({1000, 1100}, {}, 200), 4),
                ElementsAre("0:00", "0:30", "1:00", "1:30"));
    EXPECT_THAT(Labels(TimeAxis({1000, 9000}, {}, 200), 3),
                ElementsAre("0:00", "1:00:00", "2:00:00"));
}

TEST(FleetTimeAxis, ANightBetweenTwoPartsOfARunIsDrawnShort) {
    const double morning = 1000 + 100 + 36000;
    const TimeAxis axis({1000, 1050, 1100, morning, morning + 100}, {morning}, 1000);
    ASSERT_EQ(axis.Breaks().size(), 1U);
    EXPECT_DOUBLE_EQ(axis.Breaks()[0].seconds, 36000);
    EXPECT_DOUBLE_EQ(axis.At(1100), 485);
    EXPECT_DOUBLE_EQ(axis.At(morning), 515);
    EXPECT_DOUBLE_EQ(axis.At(morning + 100), 1000);
    EXPECT_DOUBLE_EQ(axis.Breaks()[0].at, 500);
}

TEST(FleetTimeAxis, ALongGatheringIsNoBreak) {
    EXPECT_TRUE(TimeAxis({1000, 1001, 9000, 9001}, {}, 200).Breaks().empty());
}

TEST(FleetTimeAxis, ARunThatWasResumedAtOnceHasNoBreak) {
    EXPECT_TRUE(TimeAxis({1000, 1001, 1500}, {1500}, 200).Breaks().empty());
}

TEST(FleetTimelineLayout, EachHostHasAPlaceOfItsOwnInside) {
    for (const std::size_t hosts : {1U, 3U, 24U, 25U, 61U, 400U, 601U, 2000U, 10000U}) {
        const TimelineLayout layout(hosts);
        EXPECT_GE(layout.columns * layout.lines, hosts);
        EXPECT_LT(layout.columns * (layout.lines - 1), hosts);
        EXPECT_LE(layout.Left(hosts - 1) + layout.column, layout.width + 0.001) << hosts;
        EXPECT_LE(layout.Top(hosts - 1) + layout.row, layout.Height() + 0.001) << hosts;
    }
}

TEST(FleetTimelineLayout, ThePictureOfManyHostsStaysOneToLookAt) {
    for (const std::size_t hosts : {3U, 400U, 2000U}) {
        EXPECT_LE(TimelineLayout(hosts).Height(), 1100) << hosts;
    }
}

}  // namespace
