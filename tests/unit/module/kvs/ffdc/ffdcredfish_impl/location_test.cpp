// SPDX-License-Identifier: Apache-2.0
#include "unit/module/kvs/ffdc/RedfishTest.h"

using fakes::Failure;
using fakes::Milestone;
using fakes::Trace;
using testing::ElementsAre;
using Varnex::KEMFfdcRedfishImpl;

namespace {

constexpr char kNotInAnswer[] = "Could not find FFDC log's path in Redfish response. ";
constexpr char kNowhere[] = "Could not find FFDC log's path in sftp or internal.";

class RedfishFindFFDCPath : public RedfishTest {
protected:
    // What a wait reports when the task completes with this answer.
    std::string PathOf(const std::string& body) {
        KEMFfdcRedfishImpl& channel = ChannelWithTask();
        web.Answer(200, body);
        std::string path = "untouched";
        EXPECT_TRUE(channel.IsFFDCLogExist(path));
        return path;
    }

    // The lines after the one that says that the task is completed.
    std::vector<fakes::LogLine> Lines() const {
        std::vector<fakes::LogLine> lines = log.Lines();
        lines.erase(lines.begin(), lines.begin() + 2);
        return lines;
    }
};

}  // namespace

TEST_F(RedfishFindFFDCPath, NonEmptyExportUriIsReturnedOnCompletionWhateverTheTaskAnswerHolds) {
    uri.filestore_uri_ = "sftp://10.0.0.9/in/a.tar.gz";

    EXPECT_EQ("sftp://10.0.0.9/in/a.tar.gz", PathOf(R"({"TaskState":"Completed",
                         "Oem":{"Tavrin":{"FFDCForDownloading":{"Path":"/other"}}}})"));

    EXPECT_THAT(
        Lines(),
        ElementsAre(Trace("FFDC has been been dumped to path: sftp://10.0.0.9/in/a.tar.gz")));
}

TEST_F(RedfishFindFFDCPath, UserWithoutAnExportUriLeavesTheArchiveOnTheBmc) {
    uri.filestore_user_ = "store";

    EXPECT_EQ("/a", PathOf(R"({"TaskState":"Completed",
                               "Oem":{"Tavrin":{"FFDCForDownloading":{"Path":"/a"}}}})"));
}

TEST_F(RedfishFindFFDCPath, CompletedTaskWhoseAnswerLacksOemGivesTrueWithAnEmptyPath) {
    EXPECT_EQ("", PathOf(R"({"TaskState":"Completed"})"));

    EXPECT_THAT(Lines(), ElementsAre(Failure(kNotInAnswer), Failure(kNowhere)));
}

TEST_F(RedfishFindFFDCPath, StopsDescendingAtTheFirstMissingMember) {
    EXPECT_EQ("", PathOf(R"({"TaskState":"Completed","Oem":{}})"));
    EXPECT_THAT(Lines(), ElementsAre(Trace("Found \"Oem\" in KTC Redfish response. "),
                                     Failure(kNotInAnswer), Failure(kNowhere)));

    EXPECT_EQ("", PathOf(R"({"TaskState":"Completed","Oem":{"Tavrin":{"ffdcfordownloading":1}}})"));
    EXPECT_THAT(Lines(), ElementsAre(Trace("Found \"Oem\" in KTC Redfish response. "),
                                     Trace("Found \"Tavrin\" in KTC Redfish response. "),
                                     Failure(kNotInAnswer), Failure(kNowhere)));

    EXPECT_EQ("", PathOf(R"({"TaskState":"Completed",
                             "Oem":{"Tavrin":{"FFDCForDownloading":"/a"}}})"));
    EXPECT_THAT(Lines(),
                ElementsAre(Trace("Found \"Oem\" in KTC Redfish response. "),
                            Trace("Found \"Tavrin\" in KTC Redfish response. "),
                            Trace("Found \"FFDCForDownloading\" in KTC Redfish response. "),
                            Failure(kNotInAnswer), Failure(kNowhere)));
}

TEST_F(RedfishFindFFDCPath, EmptyPathIsLoggedAndThenMissed) {
    EXPECT_EQ("", PathOf(R"({"TaskState":"Completed",
                             "Oem":{"Tavrin":{"FFDCForDownloading":{"Path":""}}}})"));

    EXPECT_THAT(Lines(),
                ElementsAre(Trace("Found \"Oem\" in KTC Redfish response. "),
                            Trace("Found \"Tavrin\" in KTC Redfish response. "),
                            Trace("Found \"FFDCForDownloading\" in KTC Redfish response. "),
                            Trace("FFDC has been been dumped to path: "), Failure(kNowhere)));
}

TEST_F(RedfishFindFFDCPath, MemberNamesWithDotsAreNoWay) {
    EXPECT_EQ("", PathOf(R"({"TaskState":"Completed","Oem.Tavrin.FFDCForDownloading.Path":"/a"})"));
}

TEST_F(RedfishFindFFDCPath, ALaterCompletionWithoutAPathForgetsTheEarlierOne) {
    KEMFfdcRedfishImpl& channel = ChannelWithTask();
    web.Answer(200, R"({"TaskState":"Completed",
                        "Oem":{"Tavrin":{"FFDCForDownloading":{"Path":"/a"}}}})");
    std::string path;
    ASSERT_TRUE(channel.IsFFDCLogExist(path));
    ASSERT_EQ("/a", path);
    web.Answer(200, R"({"TaskState":"Completed"})");

    EXPECT_TRUE(channel.IsFFDCLogExist(path));

    EXPECT_EQ("", path);
}

TEST_F(RedfishFindFFDCPath, FailedAnswerIsALineAndNoPath) {
    KEMFfdcRedfishImpl& channel = ChannelWithTask();
    Rest::Response response;
    response.curlCode = 0;
    response.httpCode = 500;
    response.body = "oops";

    channel.FindFFDCPath(response);

    EXPECT_THAT(log.Lines(),
                ElementsAre(Failure("Rest response error: curlCode: 0, httpCode:500, body:\n"
                                    "oops")));
}

TEST_F(RedfishFindFFDCPath, AnswerThatIsNoJsonIsALineAndNoPath) {
    KEMFfdcRedfishImpl& channel = ChannelWithTask();
    Rest::Response response;
    response.curlCode = 0;
    response.httpCode = 200;
    response.body = "<html>";

    channel.FindFFDCPath(response);

    EXPECT_THAT(log.Lines(), ElementsAre(Failure("Failed to parse Jason object : "
                                                 "<unspecified file>(1): expected value")));
}
