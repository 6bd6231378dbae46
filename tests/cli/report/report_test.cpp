// SPDX-License-Identifier: Apache-2.0
#include "cli/report/Report.h"

#include <gmock/gmock.h>

#include <boost/json.hpp>
#include <sstream>
#include <utility>
#include <vector>

#include "LogSink.h"
#include "cli/report/Json.h"
#include "cli/report/Words.h"

namespace {

using namespace Kemffdc;
namespace json = boost::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

Options OfCollect() {
    Options options;
    options.via = "redfish";
    options.host = "bmc7";
    options.port = 443;
    return options;
}

class Hearer : public ReportObserver {
public:
    void RunBegun(const RunRecord& run) override { m_heard.push_back("begun " + run.host); }
    void WayChosen(const std::string& channel, std::uint16_t port) override {
        m_heard.push_back("way " + channel + " " + std::to_string(port));
    }
    void AttemptEnded(const Attempt& attempt) override {
        m_heard.push_back("attempt " + attempt.outcome.reason);
    }
    void StepBegun(const std::string& name) override { m_heard.push_back("step " + name); }
    void StepEnded(const Step& step) override { m_heard.push_back("ended " + step.detail); }
    void FactsChanged(const BmcFacts& facts) override { m_heard.push_back(facts.model); }
    void TaskChanged(const Task& task) override { m_heard.push_back(task.messages[0].text); }
    void DeliveryChanged(const Delivery& delivery) override {
        m_heard.push_back(delivery.remotePath);
    }

    const std::vector<std::string>& Heard() const { return m_heard; }

private:
    std::vector<std::string> m_heard;
};

// Everything that a BMC can tell back.
void TellAll(Report& report, const std::string& told) {
    report.Begin();
    report.SetWay("cim", 5989);
    report.AddAttempt({"redfish", 443, Failure(kNotConnected, told), 0.5});
    report.BeginStep("preflight");
    report.EndStep(3, told);
    BmcFacts facts;
    for (std::string* text : {&facts.serviceVersion, &facts.product, &facts.vendor, &facts.model,
                              &facts.firmware, &facts.serial, &facts.uuid}) {
        *text = told;
    }
    facts.notes = {told};
    report.SetFacts(facts);
    Task task{told, told, told, 40, {{told, told, told, told}}};
    report.SetTask(task);
    Delivery delivery;
    delivery.exportUri = told;
    delivery.remotePath = told;
    report.SetDelivery(delivery);
}

TEST(Report, NeitherTheRecordNorAnObserverSeesASecret) {
    Varnex::HideInLog("correct-horse");
    const Options options = OfCollect();
    Report report(options);
    Hearer hearer;
    report.AddObserver(&hearer);
    TellAll(report, "it said correct-horse");
    const std::string masked = "it said **********";
    EXPECT_THAT(hearer.Heard(),
                ElementsAre("begun bmc7", "way cim 5989", "attempt " + masked, "step preflight",
                            "ended " + masked, masked, masked, masked));
    const auto record = report.End(Failure(kTaskFailed, "it said correct-horse"));
    ASSERT_TRUE(record);
    const std::string text = JsonText(RunObject(*record));
    EXPECT_THAT(text, Not(HasSubstr("horse")));
    std::size_t count = 0;
    for (std::size_t at = text.find(masked); at != std::string::npos;
         at = text.find(masked, at + 1)) {
        ++count;
    }
    EXPECT_EQ(count, 20U);  // each place of TellAll, and the reason
}

TEST(Report, AStepThatIsOpenAtTheEndHasNotEnded) {
    const Options options = OfCollect();
    Report report(options);
    report.BeginStep("gather");
    const auto record = report.End(Failure(kInterrupted, "Interrupted."));
    ASSERT_EQ(record->steps.size(), 1U);
    EXPECT_EQ(record->steps[0].code, -1);
    EXPECT_EQ(record->steps[0].detail, "not ended");
}

TEST(JsonText, NumbersArePlainDecimals) {
    struct Row {
        json::value value;
        const char* text;
    };
    const Row rows[] = {
        {Seconds(12.0), "12"},
        {Seconds(0.0014), "0.001"},
        {Seconds(1.5), "1.5"},
        {Seconds(7200.1234), "7200.123"},
        {Seconds(0), "0"},
        {1e21, "1000000000000000000000"},
        {std::uint64_t{1} << 63, "9223372036854775808"},
        {-7, "-7"},
    };
    for (const Row& row : rows) EXPECT_EQ(JsonText(row.value), row.text);
}

TEST(JsonText, IsWhatAReaderOfJsonReadsBack) {
    const json::value value = {{"a\n\"b", json::array{1, 2.5, nullptr, true, "ü\x01"}},
                               {"empty", json::object()},
                               {"none", json::array()}};
    const std::string text = JsonText(value);
    EXPECT_EQ(json::parse(text), value);
    EXPECT_THAT(text, Not(HasSubstr("\n")));
}

TEST(RunObject, BytesThatAreNoUtf8BecomeReplacementCharacters) {
    RunRecord record;
    record.host = "b\xFFmc";
    EXPECT_THAT(JsonText(RunObject(record)), HasSubstr("\"host\":\"b\xEF\xBF\xBDmc\""));
}

TEST(OutcomeName, IsThatOfTheCauseAndElseOfTheCode) {
    EXPECT_STREQ(OutcomeName(Outcome{}), "ok");
    EXPECT_STREQ(OutcomeName(Failure(kNotConnected, "")), "not-connected");
    EXPECT_STREQ(OutcomeName(Failure(kNotConnected, Cause::kLoginRefused, "")), "login-refused");
    EXPECT_STREQ(OutcomeName(Failure(kNotConnected, Cause::kUnreachable, "")), "unreachable");
    RunRecord record;
    EXPECT_STREQ(OutcomeName(record), "checked");
    record.delivery.exportUri = "sftp://store/x";
    EXPECT_STREQ(OutcomeName(record), "exported");
    record.delivery.path = "/x";
    EXPECT_STREQ(OutcomeName(record), "downloaded");
    record.outcome = Failure(kIncomplete, "");
    EXPECT_STREQ(OutcomeName(record), "files-missing");
}

TEST(IsRetryable, NeverWhereAnAccountMayBeLocked) {
    EXPECT_TRUE(IsRetryable(Failure(kNotConnected, Cause::kUnreachable, "")));
    EXPECT_FALSE(IsRetryable(Failure(kNotConnected, Cause::kLoginRefused, "")));
    EXPECT_FALSE(IsRetryable(Outcome{}));
}

TEST(WriteWords, OfCheckNamesWhatTheMachineIs) {
    RunRecord record;
    record.command = "check";
    record.channel = "redfish";
    record.host = "bmc7";
    record.port = 443;
    record.facts.serial = "TV8786WH25";
    record.facts.uuid = "3f6c0d52-0000-0000-0000-000000000000";
    std::ostringstream out;
    WriteWords(record, out);
    EXPECT_EQ(out.str(),
              "BMC:             bmc7 port 443, usable through redfish\n"
              "Serial number:   TV8786WH25\n"
              "UUID:            3f6c0d52-0000-0000-0000-000000000000\n");
}

TEST(WriteWords, OfAFailedRunSaysNothing) {
    RunRecord record;
    record.outcome = Failure(kNotConnected, "no");
    for (const char* command : {"check", "collect"}) {
        record.command = command;
        std::ostringstream out;
        WriteWords(record, out);
        EXPECT_EQ(out.str(), "");
    }
}

}  // namespace
