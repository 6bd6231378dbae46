// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_FAKECLOCK_H
#define VARNEX_TESTS_FAKECLOCK_H

#include <chrono>
#include <ctime>
#include <functional>
#include <vector>

namespace fakes {

// Time that moves only when somebody sleeps: 900 seconds pass in a millisecond. Sleeping without a
// FakeClock fails the test.
class FakeClock {
public:
    FakeClock();
    ~FakeClock();
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;

    // Every sleep in order; a sleep until a deadline counts as what was left until then.
    std::vector<std::chrono::milliseconds> Slept() const;
    std::chrono::milliseconds SleptInAll() const;

    // Called at every sleep, for the order of sleeps and other things.
    void OnSleep(std::function<void(std::chrono::milliseconds)> call);

    // Lets time pass without a sleep, as a slow BMC does.
    void Pass(std::chrono::nanoseconds duration);

    void SetLocalTime(const std::tm& time);
};

}  // namespace fakes

#endif
