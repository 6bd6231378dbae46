// SPDX-License-Identifier: Apache-2.0
#include "cli/archive/Check.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "archive/MadeArchive.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::Archives::Bounds;
using Kemffdc::Archives::Check;
using Kemffdc::Archives::Reading;

class CheckTest : public testing::Test {
protected:
    std::string Good(const std::string& name) const {
        MakeArchive(place / name, {{"a", "alpha"}});
        return place / name;
    }

    TempFolder place;
};

TEST_F(CheckTest, TellsOfEachFileHowItWasRead) {
    Check check{Bounds{}};
    const std::string good = Good("good.tgz");
    const std::string bad = place.Write("bad.tgz", "<html>");
    check.Begin(bad);
    check.Begin(good);
    check.Begin(place / "none.tgz");
    EXPECT_EQ(check.Result(good).files, 1U);
    EXPECT_EQ(check.Result(place / "none.tgz").state, Reading::State::kUnreadable);
    EXPECT_EQ(check.Result(bad).state, Reading::State::kBroken);
    EXPECT_TRUE(check.Result(good).Ok());
}

TEST_F(CheckTest, OfAFileThatWasReplacedTheLastReadingCounts) {
    Check check{Bounds{}};
    const std::string path = place.Write("a.tgz", "<html>");
    EXPECT_FALSE(check.HasBegun(path));
    check.Begin(path);
    EXPECT_TRUE(check.HasBegun(path));
    EXPECT_EQ(check.Result(path).state, Reading::State::kBroken);
    Good("a.tgz");
    for (int n = 0; n < 100; ++n) check.Begin(path);
    EXPECT_TRUE(check.Result(path).Ok());
}

TEST_F(CheckTest, ReadsOnAThreadOfItsOwn) {
    std::atomic<bool> elsewhere{false};
    Bounds bounds;
    bounds.stop = [&, caller = std::this_thread::get_id()] {
        if (std::this_thread::get_id() != caller) elsewhere = true;
        return false;
    };
    Check check{bounds};
    check.Begin(Good("good.tgz"));
    EXPECT_TRUE(check.Result(place / "good.tgz").Ok());
    EXPECT_TRUE(elsewhere);
}

TEST_F(CheckTest, WaitsNoLongerThanItMay) {
    std::atomic<bool> stop{false};
    Bounds bounds;
    bounds.stop = [&] { return stop.load(); };
    Check check{bounds};
    std::thread stopper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        stop = true;
    });
    EXPECT_EQ(check.Result("never begun").state, Reading::State::kStopped);
    stopper.join();
}

TEST_F(CheckTest, EndsWithWorkLeft) {
    const std::string good = Good("good.tgz");
    Check check{Bounds{}};
    for (int n = 0; n < 1000; ++n) check.Begin(good);
}

}  // namespace
