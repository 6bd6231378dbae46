// SPDX-License-Identifier: Apache-2.0
//
// bench_fleet_journal FOLDER WRITERS SECONDS: that many processes write into one journal, each as a
// worker does in a run that takes that long; prints transactions, the slowest one, and the
// processor time that all of it took.

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "cli/history/FleetJournal.h"
#include "cli/history/Store.h"

namespace {

using Clock = std::chrono::steady_clock;
using Kemffdc::History::FleetHostRow;
using Kemffdc::History::FleetJournal;
using Kemffdc::History::FleetRunRow;
using Kemffdc::History::HostState;
using Kemffdc::History::Id;
using Kemffdc::History::RunRow;
using Kemffdc::History::Store;

// In memory that all processes have.
struct Shared {
    std::atomic<long> transactions;
    std::atomic<long> slowest;  // microseconds
    std::atomic<long> failures;
};

class Writer {
public:
    Writer(Shared& shared, const std::string& folder, Id fleet, int number)
        : m_shared(shared), m_fleet(fleet), m_number(number), m_store(folder), m_journal(m_store) {}

    // What a worker writes over Redfish, spread over the time.
    void Work(std::chrono::milliseconds time) {
        const auto pause = time / kSteps;
        RunRow run;
        run.command = "collect";
        run.toolVersion = "bench";
        run.host = "bmc" + std::to_string(m_number);
        run.fleet = m_fleet;
        run.fleetNumber = m_number;
        Do([&] { m_run = m_store.BeginRun(run); });
        for (int step = 0; step < kSteps; ++step) {
            std::this_thread::sleep_for(pause);
            Do([&] { m_store.BeginStep(m_run, "gather"); });
            Do([&] { m_journal.SetState(m_fleet, m_number, kStates[step]); });
            Do([&] { m_store.SetTask(m_run, "/tasks/1", std::to_string(step)); });
            Do([&] { m_store.EndStep(m_run, 0, 1.0, ""); });
        }
        Do([&] { m_store.EndRun(m_run, 0, "downloaded", ""); });
        Do([&] { m_journal.EndHost(m_fleet, m_number, HostState::kDone, 0, "downloaded", ""); });
    }

private:
    static constexpr int kSteps = 5;
    static constexpr HostState kStates[kSteps] = {HostState::kReached, HostState::kExporting,
                                                  HostState::kGathering, HostState::kWaiting,
                                                  HostState::kTransferring};

    template <class Work>
    void Do(const Work& work) {
        const Clock::time_point begin = Clock::now();
        work();
        const long took =
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin).count();
        ++m_shared.transactions;
        for (long known = m_shared.slowest; known < took;) {
            if (m_shared.slowest.compare_exchange_weak(known, took)) break;
        }
    }

    Shared& m_shared;
    const Id m_fleet;
    const int m_number;
    Store m_store;
    FleetJournal m_journal;
    Id m_run = 0;
};

void Start(Shared& shared, const std::string& folder, Id fleet, int number, double seconds) {
    if (fork() != 0) return;
    try {
        Writer(shared, folder, fleet, number)
            .Work(std::chrono::milliseconds(static_cast<long>(seconds * 1000)));
    } catch (const std::exception& failure) {
        if (++shared.failures == 1) (void)std::fprintf(stderr, "%s\n", failure.what());
    }
    _exit(0);
}

double ProcessorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int Measure(const std::string& folder, int writers, double seconds) {
    void* memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return 1;
    auto& shared = *new (memory) Shared{};
    const auto fleet = [&] {
        FleetJournal journal(folder);
        FleetRunRow run;
        run.command = "collect";
        run.toolVersion = "bench";
        FleetHostRow host;
        host.name = host.host = "bmc";
        return journal.BeginFleet(
            run, std::vector<FleetHostRow>(static_cast<std::size_t>(writers), host));
    }();
    const Clock::time_point begin = Clock::now();
    for (int number = 1; number <= writers; ++number) Start(shared, folder, fleet, number, seconds);
    while (wait(nullptr) > 0) continue;
    const std::chrono::duration<double> took = Clock::now() - begin;
    std::printf(
        "%d writers, %ld transactions in %.1f s (%.0f a second), %ld failed writers, slowest "
        "%.0f ms, processor %.2f ms a writer\n",
        writers, shared.transactions.load(), took.count(),
        static_cast<double>(shared.transactions) / took.count(), shared.failures.load(),
        static_cast<double>(shared.slowest) / 1000, 1000 * ProcessorSeconds() / writers);
    return shared.failures == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        (void)std::fprintf(stderr, "usage: bench_fleet_journal FOLDER WRITERS SECONDS\n");
        return 2;
    }
    try {
        return Measure(argv[1], std::atoi(argv[2]), std::atof(argv[3]));
    } catch (const std::exception& failure) {
        (void)std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
