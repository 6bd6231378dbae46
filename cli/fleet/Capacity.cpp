// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Capacity.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

namespace fs = std::filesystem;

// What one more worker is counted with. While it waits it has 3 MB of memory of its own
// (bench/fleet/run); the rest is room for a download, and for the threads of name look-ups.
constexpr std::uint64_t kFilesEach = 4;  // of the conductor: three pipes, and its end
constexpr std::uint64_t kProcessesEach = 7;
constexpr std::uint64_t kMemoryEach = std::uint64_t{8} << 20;
// What the conductor takes itself.
constexpr std::uint64_t kFilesSelf = 64;
constexpr std::uint64_t kMemorySelf = std::uint64_t{64} << 20;

std::uint64_t Less(std::uint64_t a, std::uint64_t b) { return a > b ? a - b : 0; }

std::uint64_t RaisedFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return Capacity::kUnlimited;
    limit.rlim_cur = limit.rlim_max;
    (void)setrlimit(RLIMIT_NOFILE, &limit);
    (void)getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur == RLIM_INFINITY ? Capacity::kUnlimited : limit.rlim_cur;
}

// The number behind a name ("MemAvailable:", "anon"), or the first one of a file; none: unlimited
// ("max"), or there is no such file.
std::uint64_t NumberIn(const fs::path& file, const std::string& name = "") {
    std::ifstream stream(file);
    std::string word;
    std::uint64_t number = 0;
    while (!name.empty() && word != name && stream >> word) {
    }
    return stream >> number ? number : Capacity::kUnlimited;
}

std::uint64_t ThreadsOfUser() {
    std::uint64_t threads = 0;
    std::error_code gone;
    for (const auto& entry : fs::directory_iterator("/proc", gone)) {
        struct stat owner {};
        const std::string path = entry.path();
        if (stat(path.c_str(), &owner) != 0 || owner.st_uid != getuid()) continue;
        const std::uint64_t own = NumberIn(entry.path() / "status", "Threads:");
        if (own != Capacity::kUnlimited) threads += own;
    }
    return threads;
}

// The kernel does not hold the superuser to it.
std::uint64_t ProcessesLeftToUser() {
    rlimit limit{};
    if (geteuid() == 0 || getrlimit(RLIMIT_NPROC, &limit) != 0) return Capacity::kUnlimited;
    if (limit.rlim_cur == RLIM_INFINITY) return Capacity::kUnlimited;
    return Less(limit.rlim_cur, ThreadsOfUser());
}

// The folders of this process's control group and of those around it.
std::vector<fs::path> ControlGroups() {
    std::ifstream file("/proc/self/cgroup");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("0::/", 0) != 0) continue;
        std::vector<fs::path> folders;
        fs::path group = fs::path("/sys/fs/cgroup" + line.substr(3)).lexically_normal();
        while (group.string().rfind("/sys/fs/cgroup", 0) == 0) {
            folders.push_back(group);
            group = group.parent_path();
        }
        return folders;
    }
    return {};
}

// What is left of a limit; `used` counts where it is known.
std::uint64_t Left(std::uint64_t most, std::uint64_t used) {
    if (most == Capacity::kUnlimited || used == Capacity::kUnlimited) return most;
    return Less(most, used);
}

void LimitByControlGroup(const fs::path& group, Capacity& capacity) {
    const std::uint64_t processes =
        Left(NumberIn(group / "pids.max"), NumberIn(group / "pids.current"));
    // Pages of files count as used, and are given back when they are needed.
    const std::uint64_t memory =
        Left(NumberIn(group / "memory.max"), NumberIn(group / "memory.stat", "anon"));
    capacity.processes = std::min(capacity.processes, processes);
    capacity.memory = std::min(capacity.memory, memory);
}

// "It would take 9.0 GiB of memory for 400 workers, and there are 4.0 GiB."
std::string Fault(const std::string& what, const std::string& need, const std::string& have,
                  std::size_t workers, std::size_t possible, std::size_t transfers,
                  const std::string& advice) {
    std::string text = std::to_string(workers) + " BMCs at once would take " + need + " " + what +
                       ", and there are " + have + ".";
    if (possible > transfers) {
        return text + " Use --gathering " + std::to_string(possible - transfers) + advice + ".";
    }
    return text + " Use a smaller --gathering and --transfers" + advice + ".";
}

}  // namespace

Capacity MeasureCapacity() {
    Capacity capacity;
    capacity.files = RaisedFileLimit();
    capacity.processes = ProcessesLeftToUser();
    const std::uint64_t kilobytes = NumberIn("/proc/meminfo", "MemAvailable:");
    if (kilobytes != Capacity::kUnlimited) capacity.memory = kilobytes << 10;
    for (const fs::path& group : ControlGroups()) LimitByControlGroup(group, capacity);
    return capacity;
}

std::string CapacityFault(const Capacity& capacity, std::size_t hosts, std::size_t gathering,
                          std::size_t transfers) {
    const std::size_t workers = std::min(hosts, gathering + transfers);
    const std::uint64_t files = kFilesSelf + workers * kFilesEach;
    if (files > capacity.files) {
        return Fault("open files", std::to_string(files), std::to_string(capacity.files), workers,
                     Less(capacity.files, kFilesSelf) / kFilesEach, transfers,
                     ", or raise the limit (ulimit -n)");
    }
    const std::uint64_t processes = workers * kProcessesEach;
    if (processes > capacity.processes) {
        return Fault("processes and threads", std::to_string(processes),
                     std::to_string(capacity.processes), workers,
                     capacity.processes / kProcessesEach, transfers,
                     ", or raise the limit (ulimit -u, or pids.max of the control group)");
    }
    const std::uint64_t memory = kMemorySelf + workers * kMemoryEach;
    if (memory > capacity.memory) {
        return Fault("of memory", HumanBytes(memory), HumanBytes(capacity.memory), workers,
                     Less(capacity.memory, kMemorySelf) / kMemoryEach, transfers, "");
    }
    return "";
}

}  // namespace Kemffdc::Fleet
