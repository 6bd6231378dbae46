// SPDX-License-Identifier: Apache-2.0
#include "RedfishClient.h"

#include <chrono>
#include <utility>

#include "Clock.h"
#include "GlobalConfig.h"
#include "common/log_line.h"

namespace Rest {

namespace {

constexpr char kLogSource[] = "src/common/rest/RedfishClient";

constexpr std::int64_t kMillisecondsPerSecond = 1000;
constexpr std::int64_t kNanosecondsPerMillisecond = 1000000;
constexpr std::int64_t kRetryInterval = 5000;  // milliseconds

int StartupWaitSeconds() {
    static const int seconds = GetGlobalConfigValue("REDFISH_STARTUP_WAIT_TIME", 180);
    return seconds;
}

int ActionTimeoutSeconds() {
    static const int seconds = GetGlobalConfigValue("REST_ACTION_TIMEOUT", 0);
    return seconds;
}

// An attempt leaves the stream at its end and failed, and such a stream would be sent as empty.
template <typename Send>
auto Repeatable(std::istream& stream, Send send) {
    return [&stream, send, repeated = false]() mutable {
        if (std::exchange(repeated, true)) stream.clear();
        return send();
    };
}

}  // namespace

void RedfishClient::SetBasicAuth(const std::string& user, const std::string& password) {
    innerClient.SetBasicAuth(user, password);
}

void RedfishClient::SetTimeout(int seconds) {
    const int configured = ActionTimeoutSeconds();
    innerClient.SetTimeout(configured != 0 ? configured : seconds);
}

void RedfishClient::SetSkipSslVerify(bool skip) { innerClient.SetSkipSslVerify(skip); }

void RedfishClient::SetNoExpectHeader(bool suppress) { innerClient.SetNoExpectHeader(suppress); }

void RedfishClient::FollowRedirects(bool follow, int maximum) {
    innerClient.FollowRedirects(follow, maximum);
}

void RedfishClient::SetCAInfoFilePath(const std::string& path) {
    innerClient.SetCAInfoFilePath(path);
}

void RedfishClient::SetProxy(const std::string& proxy, const std::string& user,
                             const std::string& password) {
    innerClient.SetProxy(proxy, user, password);
}

void RedfishClient::SetHeaders(std::map<std::string, std::string> headers) {
    innerClient.SetHeaders(std::move(headers));
}

std::map<std::string, std::string> RedfishClient::GetHeaders() { return innerClient.GetHeaders(); }

void RedfishClient::AppendHeader(const std::string& key, const std::string& value) {
    innerClient.AppendHeader(key, value);
}

int RedfishClient::EnableGzip() { return innerClient.EnableGzip(); }

Response RedfishClient::Request(RequestType type, const std::string& url, const std::string& body) {
    return innerClient.Request(type, url, body);
}

Response RedfishClient::Get(const std::string& url) {
    LOG_LINE(kTrace) << "Redfish GET action on URL: " << url;
    return RetryUntilReady([&] { return innerClient.Get(url); });
}

Response RedfishClient::PostMultipart(const std::string& url, const MimeParts& parts,
                                      ProgressCallback progress) {
    return RetryUntilReady([&] { return innerClient.PostMultipart(url, parts, progress); });
}

Response RedfishClient::PostStream(const std::string& url, std::istream& stream) {
    return RetryUntilReady(Repeatable(stream, [&] { return innerClient.PostStream(url, stream); }));
}

Response RedfishClient::Post(const std::string& url, const std::string& body) {
    return RetryUntilReady([&] { return innerClient.Post(url, body); });
}

Response RedfishClient::PutStream(const std::string& url, std::istream& stream) {
    return RetryUntilReady(Repeatable(stream, [&] { return innerClient.PutStream(url, stream); }));
}

Response RedfishClient::Put(const std::string& url, const std::string& body) {
    return RetryUntilReady([&] { return innerClient.Put(url, body); });
}

Response RedfishClient::PatchStream(const std::string& url, std::istream& stream) {
    return RetryUntilReady(
        Repeatable(stream, [&] { return innerClient.PatchStream(url, stream); }));
}

Response RedfishClient::Patch(const std::string& url, const std::string& body) {
    return RetryUntilReady([&] { return innerClient.Patch(url, body); });
}

Response RedfishClient::Delete(const std::string& url) {
    return RetryUntilReady([&] { return innerClient.Delete(url); });
}

Response RedfishClient::Head(const std::string& url) {
    return RetryUntilReady([&] { return innerClient.Head(url); });
}

Response RedfishClient::Options(const std::string& url) {
    return RetryUntilReady([&] { return innerClient.Options(url); });
}

int RedfishClient::CheckResponse(const Response& response) {
    return innerClient.CheckResponse(response);
}

RedfishClient::RetryPolicy RedfishClient::MakeRetryPolicy() {
    return {StartupWaitSeconds() * kMillisecondsPerSecond, kRetryInterval};
}

template <typename Attempt>
Response RedfishClient::RetryUntilReady(Attempt attempt) {
    const RetryPolicy policy = MakeRetryPolicy();
    const Clock::Monotonic start = Clock::Now();
    while (true) {
        Response response = attempt();
        if (IsRedfishReady(response)) return response;

        // Before the sleep, so the last attempt may begin just before the period ends.
        const std::chrono::nanoseconds elapsed = Clock::Now() - start;
        const bool over = policy.totalWait * kNanosecondsPerMillisecond < elapsed.count();
        if (over || policy.totalWait <= 0) return response;  // on a coarse clock no time passes
        Clock::SleepFor(std::chrono::milliseconds(policy.interval));
    }
}

bool RedfishClient::IsRedfishReady(const Response& response) {
    if (response.curlCode != 0 || response.httpCode != 503) return true;
    LOG_LINE(kTrace) << "curlCode: " << response.curlCode << " | httpCode: " << response.httpCode
                     << " | body: " << response.body;
    return false;
}

}  // namespace Rest
