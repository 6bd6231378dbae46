// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Estimate.h"

#include <algorithm>
#include <string>

namespace Kemffdc::Fleet {
namespace {

using namespace std::chrono_literals;
using History::HostState;
using std::chrono::duration;

constexpr auto kRateOver = 5s;
constexpr auto kShortestLook = 30s;  // back, for how many hosts end in a second

using Span = duration<double>;

bool IsAtWork(const SceneHost& host) {
    return !HasEnded(host.state) && host.state != HostState::kQueued && host.begun != WallTime();
}

// The time that half of them took at most; they are not empty.
Span Median(std::vector<Span> spans) {
    const auto middle = spans.begin() + static_cast<std::ptrdiff_t>(spans.size() / 2);
    std::nth_element(spans.begin(), middle, spans.end());
    return *middle;
}

std::vector<Span> TookDone(const Scene& scene) {
    std::vector<Span> took;
    for (const SceneHost& host : scene.hosts) {
        const bool here = host.state == HostState::kDone && host.since >= scene.begun;
        if (here && host.begun != WallTime()) took.emplace_back(host.since - host.begun);
    }
    return took;
}

// Of those that are left; zero where they have taken longer already.
Span LongestLeft(const Scene& scene, Span usual) {
    Span longest{0};
    for (const SceneHost& host : scene.hosts) {
        if (HasEnded(host.state)) continue;
        const Span age = IsAtWork(host) ? Span(scene.now - host.begun) : Span(0);
        longest = std::max(longest, usual - age);
    }
    return longest;
}

// How long the others take at the pace of those that have ended lately; none: no one has.
std::optional<Span> LeftAtThisPace(const Scene& scene, Span usual) {
    const Span look = std::min(Span(scene.now - scene.begun), std::max<Span>(kShortestLook, usual));
    std::size_t left = 0;
    std::size_t lately = 0;
    for (const SceneHost& host : scene.hosts) {
        if (!HasEnded(host.state)) ++left;
        if (HasEnded(host.state) && scene.now - host.since <= look) ++lately;
    }
    if (lately == 0) return std::nullopt;
    return look * (static_cast<double>(left) / static_cast<double>(lately));
}

}  // namespace

std::optional<std::chrono::seconds> TimeLeft(const Scene& scene) {
    const std::vector<Span> took = TookDone(scene);
    if (took.empty()) return std::nullopt;
    const Span usual = Median(took);
    const Span longest = LongestLeft(scene, usual);
    const std::optional<Span> pace = LeftAtThisPace(scene, usual);
    if (longest == Span(0) || !pace) return std::nullopt;
    return std::chrono::ceil<std::chrono::seconds>(std::max(longest, *pace));
}

std::string TimeLeftText(std::optional<std::chrono::seconds> left) {
    if (!left) return "time left unknown";
    if (*left < 1min) return "less than a minute left";
    const auto minutes = std::chrono::round<std::chrono::minutes>(*left).count();
    if (minutes < 60) return "about " + std::to_string(minutes) + " min left";
    const auto tens = (minutes + 5) / 10 * 10;
    const std::string rest = tens % 60 == 0 ? "" : " " + std::to_string(tens % 60) + " min";
    return "about " + std::to_string(tens / 60) + " h" + rest + " left";
}

void Throughput::See(const Scene& scene) {
    m_bytes.resize(scene.hosts.size(), 0);
    Sample sample{scene.now, m_samples.empty() ? 0 : m_samples.back().bytes};
    for (std::size_t i = 0; i < m_bytes.size(); ++i) {
        const std::uint64_t bytes = scene.hosts[i].bytes;
        if (!m_samples.empty() && bytes > m_bytes[i]) sample.bytes += bytes - m_bytes[i];
        m_bytes[i] = bytes;
    }
    m_samples.push_back(sample);
    // One that is older stays, so that all of the five seconds are seen.
    while (m_samples.size() > 2 && scene.now - m_samples[1].at >= kRateOver) m_samples.pop_front();
}

std::uint64_t Throughput::BytesPerSecond() const {
    if (m_samples.size() < 2) return 0;
    const Span span = m_samples.back().at - m_samples.front().at;
    if (span <= Span(0)) return 0;  // the clock was set back
    const std::uint64_t bytes = m_samples.back().bytes - m_samples.front().bytes;
    return static_cast<std::uint64_t>(static_cast<double>(bytes) / span.count());
}

}  // namespace Kemffdc::Fleet
