// SPDX-License-Identifier: Apache-2.0
//
// What reaches libcurl, seen by a libcurl that is a script.
#include "DownloadTest.h"
#include "fakes/FakeCurl.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class FileClientOptions : public DownloadTest {
protected:
    const Uri uri = Uri("https", "bmc.example", 443, "admin", "s3cret", "/a");
    fakes::FakeCurl web;
};

TEST_F(FileClientOptions, TheLimitsAreThoseThatAreDocumented) {
    web.Answer(200, "content");

    EXPECT_EQ("", Text(Download(uri)));

    const std::vector<std::string> calls = web.TakeCalls();
    for (const char* call :
         {"CURLOPT_BUFFERSIZE 524288", "CURLOPT_LOW_SPEED_LIMIT 30", "CURLOPT_LOW_SPEED_TIME 60",
          "CURLOPT_CONNECTTIMEOUT 30", "CURLOPT_NOSIGNAL 1", "CURLOPT_PROTOCOLS_STR https",
          "CURLOPT_FOLLOWLOCATION 0", "CURLOPT_PATH_AS_IS 1", "CURLOPT_SSL_VERIFYPEER 0",
          "CURLOPT_SSL_VERIFYHOST 0", "CURLOPT_URL https://bmc.example:443/a",
          "CURLOPT_USERNAME admin", "CURLOPT_PASSWORD s3cret"}) {
        EXPECT_THAT(calls, Contains(call));
    }
    EXPECT_THAT(calls, Not(Contains(HasSubstr("CURLOPT_CAINFO"))));
    EXPECT_THAT(calls, Not(Contains(HasSubstr("CURLOPT_PROXY"))));
    EXPECT_THAT(calls, Not(Contains(HasSubstr("CURLOPT_RANGE"))));
    EXPECT_THAT(calls, Not(Contains(HasSubstr("CURLOPT_HTTPHEADER"))));
    EXPECT_EQ("content", Content(target));
}

TEST_F(FileClientOptions, ANamedCaTakesTheSystemsPlace) {
    Environment("VARNEX_CA_FILE", "/my/ca.pem");
    web.Answer(200, "content");

    EXPECT_EQ("", Text(Download(uri)));

    const std::vector<std::string> calls = web.TakeCalls();
    for (const char* call : {"CURLOPT_CAINFO /my/ca.pem", "CURLOPT_CAPATH null",
                             "CURLOPT_SSL_VERIFYPEER 1", "CURLOPT_SSL_VERIFYHOST 2"}) {
        EXPECT_THAT(calls, Contains(call));
    }
}

TEST_F(FileClientOptions, ATimeOfNothingOrLessIsASecond) {
    Environment("VARNEX_TRANSFER_STALL_TIME", "0");
    Environment("VARNEX_TRANSFER_CONNECT_TIME", "-1");
    web.Answer(200, "content");

    EXPECT_EQ("", Text(Download(uri)));

    const std::vector<std::string> calls = web.TakeCalls();
    EXPECT_THAT(calls, Contains("CURLOPT_LOW_SPEED_TIME 1"));
    EXPECT_THAT(calls, Contains("CURLOPT_CONNECTTIMEOUT 1"));
}

// One that fails when it is applied, and says a number of the test's choice.
class Option : public curlcpp::option_trait_base {
public:
    explicit Option(int number) : m_number(static_cast<CURLoption>(number)) {}
    CURLoption option() const noexcept override { return m_number; }
    CURLcode apply(CURL*) const override {
        ++applied;
        return CURLE_UNKNOWN_OPTION;
    }
    mutable int applied = 0;

private:
    CURLoption m_number;
};

TEST_F(FileClientOptions, NumberZeroNeverReachesLibcurl) {
    const Option none(0);
    web.Answer(200, "content");

    EXPECT_EQ("", Text(file_client::download(uri, target, none)));

    EXPECT_EQ(0, none.applied);
}

TEST_F(FileClientOptions, AnOptionThatLibcurlRefusesIsAnErrorBeforeAnythingIsSent) {
    const Option bad(CURLOPT_HTTPHEADER);

    EXPECT_THAT(Text(file_client::download(uri, target, bad)),
                testing::StartsWith("varnex.transfer:48 "));

    EXPECT_EQ(1, bad.applied);
    ExpectNothingLeft();
}

TEST_F(FileClientOptions, AHandleThatCannotBeMadeIsAnError) {
    web.InitFails();

    EXPECT_THAT(Text(Download(uri)), testing::StartsWith("varnex.transfer:2 "));
    ExpectNothingLeft();
}

TEST_F(FileClientOptions, SecretsInLibcurlsTextAreMasked) {
    web.Fail(CURLE_COULDNT_RESOLVE_PROXY, "Unsupported proxy syntax in 'u:s3cret@proxy\x1B[2J'");

    EXPECT_EQ("varnex.transfer:5 Unsupported proxy syntax in '**********@proxy\\x1B[2J'",
              Text(Download(uri)));
}

}  // namespace
