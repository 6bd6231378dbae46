// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_CLI_FLEET_SAMPLERESULTS_H
#define VARNEX_TESTS_CLI_FLEET_SAMPLERESULTS_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "cli/fleet/Results.h"

// Results of a made-up run, the same each time: `count` hosts of three groups; most of them get
// their archive, some fail in every way, and one BMC says hostile things of itself.
class SampleResults {
public:
    explicit SampleResults(int count, const std::string& folder = "/srv/ffdc/fleet-1") {
        using Kemffdc::Fleet::RunResult;
        RunResult run;
        run.station = "station1";
        run.fleet = 12;
        run.command = "collect";
        run.toolVersion = "1.1.0";
        run.inventory = "/etc/kemffdc/hosts.yaml";
        run.folder = folder;
        run.started = kBegun;
        run.exitCode = 20;
        m_results.runs.push_back(run);
        for (int number = 1; number <= count; ++number) Add(number, count);
        double ended = kBegun;
        for (const auto& host : m_results.hosts) ended = std::max(ended, host.states.back().at);
        m_results.runs[0].ended = ended + 0.5;
        m_results.written = ended + 1;
    }

    Kemffdc::Fleet::Results& Get() { return m_results; }

    static constexpr double kBegun = 1767229200;  // 2026-01-01T01:00:00Z
    static constexpr char kHostile[] =
        "</script><script>document.title='owned'</script>\"><img src=x onerror=alert(1)>";

private:
    using HostState = Kemffdc::History::HostState;

    double Between(double least, double most) {  // the library's own distributions differ
        return least + (most - least) * static_cast<double>(m_random()) / 4294967296.0;
    }

    void Add(int number, int count) {
        Kemffdc::Fleet::HostResult host;
        std::array<char, 32> name{};
        (void)std::snprintf(name.data(), name.size(), "bmc%04d.example", number);
        host.number = number;
        host.name = host.host = name.data();
        constexpr std::array<const char*, 3> kGroups{"rack1", "rack2", "storage"};
        constexpr std::array<const char*, 3> kChannels{"redfish", "ipmi", "redfish"};
        constexpr std::array<const char*, 3> kOperations{"oem", "", "standard"};
        const auto group = static_cast<std::size_t>((number - 1) * 3 / count);
        host.group = kGroups.at(group);
        host.channel = kChannels.at(group);
        if (host.channel == "redfish") host.operation = kOperations.at(group);
        host.credential = "site";
        host.attempts = 1;
        m_at = kBegun + 0.02 * number;
        const bool fails = count <= 3 ? number == 2 : number % 19 == 7;
        fails ? Fail(host, number) : Succeed(host, number);
        m_results.hosts.push_back(host);
    }

    void Go(Kemffdc::Fleet::HostResult& host, HostState state, double seconds) {
        host.states.push_back({m_at, state});
        host.state = state;
        m_at = std::round((m_at + seconds) * 1000) / 1000;
    }

    void Succeed(Kemffdc::Fleet::HostResult& host, int number) {
        Go(host, HostState::kQueued, Between(0, 2));
        Go(host, HostState::kStarting, Between(0.1, 0.5));
        Go(host, HostState::kReached, Between(0.2, 1));
        Go(host, HostState::kExporting, Between(0.1, 0.4));
        Go(host, HostState::kGathering, Between(40, 180));
        Go(host, HostState::kWaiting, Between(0, 25));
        Go(host, HostState::kTransferring, Between(2, 14));
        Go(host, HostState::kDone, 0);
        host.outcome = "downloaded";
        host.exitCode = 0;
        host.size = static_cast<std::uint64_t>(Between(3e6, 9e7));
        host.sha256 = std::string(64, "0123456789abcdef"[number % 16]);
        const std::string file = host.name + "_20260101T010000Z_ffdc.tar.gz";
        host.archive = m_results.runs[0].folder + "/" + host.name + "/" + file;
        host.record = host.archive + ".json";
        Describe(host, number);
    }

    void Fail(Kemffdc::Fleet::HostResult& host, int number) {
        host.state = HostState::kFailed;
        host.exitCode = 3;
        Go(host, HostState::kQueued, Between(0, 2));
        Go(host, HostState::kStarting, Between(0.2, 1));
        switch (number % 5) {
            case 0:
                host.outcome = "unreachable";
                host.reason = "Nothing answers at " + host.host + " port 443: No route to host.";
                Go(host, HostState::kPausing, 10);
                Go(host, HostState::kStarting, 3);
                host.attempts = 2;
                break;
            case 1:
                host.outcome = "task-failed";
                host.reason = "The gathering failed: disk of the BMC is full.";
                host.exitCode = 5;
                Go(host, HostState::kGathering, Between(20, 90));
                Describe(host, number);
                break;
            case 2:
                host.outcome = "login-refused";
                host.reason = "The BMC refuses user admin or the password.";
                break;
            case 3:
                host.outcome = "guarded";
                host.reason =
                    "Credential site was refused by bmc0007.example and bmc0022.example; nothing "
                    "more was tried with it.";
                host.attempts = 0;
                host.exitCode = -1;
                host.states.pop_back();
                Go(host, HostState::kStopped, 0);
                return;
            default:
                host.outcome = "connection-lost";
                host.reason = "The connection broke in the middle of the download.";
                host.exitCode = 7;
                Go(host, HostState::kGathering, Between(40, 90));
                Go(host, HostState::kTransferring, Between(2, 9));
                break;
        }
        Go(host, HostState::kFailed, 0);
    }

    static void Describe(Kemffdc::Fleet::HostResult& host, int number) {
        host.bmc.address = "192.0.2." + std::to_string(number % 250 + 1);
        host.bmc.vendor = "Tavrin";
        host.bmc.model = number % 2 == 0 ? "TS 4200" : "TS 4210 G2";
        host.bmc.firmware = "2." + std::to_string(number % 7) + ".1";
        host.bmc.serial = "TV" + std::to_string(700000 + number);
        if (number == 1) host.bmc.model = kHostile;
    }

    Kemffdc::Fleet::Results m_results;
    std::mt19937 m_random{17};
    double m_at = kBegun;
};

#endif
