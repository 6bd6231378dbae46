// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_COMMON_REST_REDFISHCLIENT_H
#define VARNEX_COMMON_REST_REDFISHCLIENT_H

#include <cstdint>
#include <map>
#include <string>

#include "RestClient.h"
#include "RestClientInterface.h"

namespace Rest {

// A RestClient for a BMC's Redfish service (DSP0266). A BMC that is still starting answers 503:
// every request but Request() is then repeated, 5 seconds later each time, for as long as the
// configuration's REDFISH_STARTUP_WAIT_TIME says (180 s; 0 or less: never). Any other answer, any
// failed transfer and the last 503 are returned as they are.
//
// Both configuration values are read at their first use and hold for the rest of the process.
class RedfishClient : public RestClientInterface {
public:
    // Throws std::runtime_error "Couldn't initialize curl handle".
    RedfishClient() = default;
    ~RedfishClient() override = default;

    void SetBasicAuth(const std::string& user, const std::string& password) override;

    // The configuration's REST_ACTION_TIMEOUT, unless it is 0, replaces `seconds`.
    void SetTimeout(int seconds) override;

    void SetSkipSslVerify(bool skip) override;
    void SetNoExpectHeader(bool suppress) override;
    void FollowRedirects(bool follow, int maximum) override;
    void SetCAInfoFilePath(const std::string& path) override;
    void SetProxy(const std::string& proxy, const std::string& user,
                  const std::string& password) override;
    void SetHeaders(std::map<std::string, std::string> headers) override;
    std::map<std::string, std::string> GetHeaders() override;
    void AppendHeader(const std::string& key, const std::string& value) override;
    int EnableGzip() override;

    // One attempt, whatever the answer, and no log line, also for a GET.
    Response Request(RequestType type, const std::string& url, const std::string& body) override;

    // Logs the address.
    Response Get(const std::string& url) override;
    Response PostMultipart(const std::string& url, const MimeParts& parts,
                           ProgressCallback progress) override;
    Response PostStream(const std::string& url, std::istream& stream) override;
    Response Post(const std::string& url, const std::string& body) override;
    Response PutStream(const std::string& url, std::istream& stream) override;
    Response Put(const std::string& url, const std::string& body) override;
    Response PatchStream(const std::string& url, std::istream& stream) override;
    Response Patch(const std::string& url, const std::string& body) override;
    Response Delete(const std::string& url) override;
    Response Head(const std::string& url) override;
    Response Options(const std::string& url) override;

    // As RestClient::CheckResponse().
    virtual int CheckResponse(const Response& response);

private:
    struct RetryPolicy {
        std::int64_t totalWait;  // milliseconds
        std::int64_t interval;   // milliseconds
    };

    static RetryPolicy MakeRetryPolicy();

    // Blocks for the time of all attempts and of the sleeps between them.
    template <typename Attempt>
    static Response RetryUntilReady(Attempt attempt);

    // False, and a log line, for a 503.
    static bool IsRedfishReady(const Response& response);

    RestClient innerClient;
};

}  // namespace Rest

#endif
