// SPDX-License-Identifier: Apache-2.0
#include <boost/property_tree/json_parser.hpp>
#include <new>

#include "unit/module/kvs/ffdc/RedfishTest.h"

using fakes::Failure;
using fakes::Trace;
using testing::ElementsAre;
using Varnex::KEMFfdcRedfishImpl;

namespace {

constexpr char kExportUrl[] =
    "https://10.0.0.5:443/redfish/v1/Managers/1/Oem/Tavrin/ServiceData/Actions/"
    "TavrinServiceData.ExportFFDCData";

class RedfishApply : public RedfishTest {
protected:
    // Where a wait would look for the task.
    std::string PolledUrl() {
        web.Answer(200, R"({"TaskState":"Killed"})");
        std::string path;
        made->IsFFDCLogExist(path);
        return LastRequest().url;
    }
};

}  // namespace

TEST_F(RedfishApply, PostsTheActionAndKeepsTheTask) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Answer(202, R"({"Id":"42"})");

    EXPECT_EQ(0, channel.Apply());

    EXPECT_EQ("POST", LastRequest().method);
    EXPECT_EQ(kExportUrl, LastRequest().url);
    EXPECT_THAT(LastRequest().headers,
                ElementsAre("Accept: application/json", "Content-Type: application/json"));
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Trace(std::string("Successfully post info to ") + kExportUrl),
                    Trace(R"(Entered SaveTaskId(), parameter strResponse = {"Id":"42"})"),
                    Trace("property Id found. "), Trace("jsonPtree.get<string>() invoked. ")));
    EXPECT_EQ("https://10.0.0.5:443/redfish/v1/TaskService/Tasks/42", PolledUrl());
}

TEST_F(RedfishApply, WithAnEmptyUploadingUriTheBodyHoldsTheTwoMembers) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Answer(202, "{}");
    channel.Apply();
    EXPECT_EQ(R"({"InitializationNeeded":true,"DataCollectionType":"ProcessorDump"})",
              LastRequest().body);

    KEMFfdcRedfishImpl& mini = ChannelFor("1.15.0", Varnex::BMCLOG_MINI_LOG);
    web.Answer(202, "{}");
    mini.Apply();
    EXPECT_EQ(R"({"InitializationNeeded":true,"DataCollectionType":"Mini-log"})",
              LastRequest().body);
}

TEST_F(RedfishApply, BMCLogOptionValues0And2BehaveAlikeOnly1SelectsMiniLog) {
    struct Row {
        int option;
        const char* type;
    };
    for (const Row& row : {Row{0, "ProcessorDump"}, Row{1, "Mini-log"}, Row{2, "ProcessorDump"},
                           Row{-1, "ProcessorDump"}, Row{2147483647, "ProcessorDump"}}) {
        KEMFfdcRedfishImpl& channel =
            ChannelFor("1.15.0", static_cast<Varnex::BMCLogOption>(row.option));
        web.Answer(202, "{}");

        channel.Apply();

        EXPECT_EQ(std::string(R"({"InitializationNeeded":true,"DataCollectionType":")") + row.type +
                      "\"}",
                  LastRequest().body)
            << row.option;
    }
}

TEST_F(RedfishApply, AnyOfTheThreeStringsAsksForTheLongForm) {
    struct Row {
        Varnex::KEMFfdcUploadingUri uri;
        const char* body;
    };
    const Row rows[] = {
        {{"sftp://10.0.0.9/in", "store", "pass"},
         R"({"InitializationNeeded":true,"Username":"store","Password":"pass","ExportURI":"sftp://10.0.0.9/in","DataCollectionType":"ProcessorDump"})"},
        {{"tftp://10.0.0.9/in", "", ""},
         R"({"InitializationNeeded":true,"Username":"","Password":"","ExportURI":"tftp://10.0.0.9/in","DataCollectionType":"ProcessorDump"})"},
        {{"", "store", ""},
         R"({"InitializationNeeded":true,"Username":"store","Password":"","ExportURI":"","DataCollectionType":"ProcessorDump"})"},
        {{"", "", "pass"},
         R"({"InitializationNeeded":true,"Username":"","Password":"pass","ExportURI":"","DataCollectionType":"ProcessorDump"})"},
        {{"", "", "q\"\\\n\xC3\xA9"},
         "{\"InitializationNeeded\":true,\"Username\":\"\",\"Password\":\"q\\\"\\\\\\n\xC3\xA9\","
         "\"ExportURI\":\"\",\"DataCollectionType\":\"ProcessorDump\"}"},
    };
    for (const Row& row : rows) {
        uri = row.uri;
        KEMFfdcRedfishImpl& channel = Channel();
        web.Answer(202, "{}");

        channel.Apply();

        EXPECT_EQ(row.body, LastRequest().body);
    }
}

TEST_F(RedfishApply, RefusedExportReturns2AndForgetsTheEarlierTask) {
    KEMFfdcRedfishImpl& channel = ChannelWithTask("42");
    web.Answer(400, "no");

    EXPECT_EQ(2, channel.Apply());

    EXPECT_THAT(log.Lines(), ElementsAre(Failure(std::string("Failed post info to ") + kExportUrl),
                                         Failure("curlCode: 0, httpCode: 400, body:\nno")));
    EXPECT_EQ(kBase, PolledUrl());
}

TEST_F(RedfishApply, WithoutAClientTheEarlierTaskIsForgottenToo) {
    KEMFfdcRedfishImpl& channel = ChannelWithTask("42");
    channel.Disconnect();

    EXPECT_EQ(2, channel.Apply());

    web.Answer(404);
    EXPECT_EQ(0, channel.ResetConn(conn));
    EXPECT_EQ(kBase, PolledUrl());
}

TEST_F(RedfishApply, TheEarlierTaskIsForgottenBeforeTheExportIsPosted) {
    KEMFfdcRedfishImpl& channel = ChannelWithTask("42");
    web.Play([](fakes::Transfer&) -> CURLcode { throw std::bad_alloc(); });

    EXPECT_THROW(channel.Apply(), std::bad_alloc);

    EXPECT_EQ(kBase, PolledUrl());
}

TEST_F(RedfishApply, AStatusFrom300To399IsAnAcceptedExport) {
    for (const long status : {300L, 302L, 304L, 399L}) {
        KEMFfdcRedfishImpl& channel = Channel();
        web.Answer(status, R"({"Id":"42"})");

        EXPECT_EQ(0, channel.Apply()) << status;

        EXPECT_EQ("https://10.0.0.5:443/redfish/v1/TaskService/Tasks/42", PolledUrl());
    }
}

TEST_F(RedfishApply, BrokenTransferReturns2WithCurlsCodeAndText) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Fail(CURLE_GOT_NOTHING, "Empty reply from server");

    EXPECT_EQ(2, channel.Apply());

    EXPECT_THAT(log.Lines(), ElementsAre(Failure(std::string("Failed post info to ") + kExportUrl),
                                         Failure("curlCode: 52, httpCode: -1, body:\n"
                                                 "Empty reply from server")));
}

TEST_F(RedfishApply, AnswerWithoutIdLeavesNoTaskAndStillReturns0) {
    KEMFfdcRedfishImpl& channel = ChannelWithTask("42");
    web.Answer(202, R"({"id":"7","Oem":{"Id":"8"}})");

    EXPECT_EQ(0, channel.Apply());

    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(std::string("Successfully post info to ") + kExportUrl),
                            Trace("Entered SaveTaskId(), parameter strResponse = "
                                  R"({"id":"7","Oem":{"Id":"8"}})")));
    EXPECT_EQ(kBase, PolledUrl());
}

TEST_F(RedfishApply, AcceptedExportWhoseAnswerIsNotJsonThrowsTheReadersError) {
    for (const std::string& body : {std::string("not json"), std::string(), std::string("{\"Id\":"),
                                    std::string(100000, '[')}) {
        KEMFfdcRedfishImpl& channel = ChannelWithTask("42");
        web.Answer(202, body);

        EXPECT_THROW(channel.Apply(), boost::property_tree::json_parser_error);

        EXPECT_THAT(log.Lines(),
                    ElementsAre(Trace(std::string("Successfully post info to ") + kExportUrl),
                                Trace("Entered SaveTaskId(), parameter strResponse = " + body)));
        EXPECT_EQ(kBase, PolledUrl());
    }
}

TEST_F(RedfishApply, OlderBmcsTaskLiesAtTheOlderPlace) {
    KEMFfdcRedfishImpl& channel = ChannelFor("1.5.0");
    web.Answer(202, R"({"Id":"42"})");

    channel.Apply();

    EXPECT_EQ("https://10.0.0.5:443/redfish/v1/Tasks/Tasks/42", PolledUrl());
}

TEST_F(RedfishApply, NumberAsIdIsTakenAsText) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Answer(202, R"({"Id":42})");

    channel.Apply();

    EXPECT_EQ("https://10.0.0.5:443/redfish/v1/TaskService/Tasks/42", PolledUrl());
}
