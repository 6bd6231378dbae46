// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/tree/PatientSource.h"

#include <gmock/gmock.h>

#include <ctime>
#include <deque>

namespace {

using Kemffdc::Answer;
using Kemffdc::Stage;
using Kemffdc::Redfish::Tree::PatientSource;
using Kemffdc::Redfish::Tree::PauseOf;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

Answer Status(long httpCode, const std::string& retryAfter = "") {
    Answer answer;
    answer.httpCode = httpCode;
    if (!retryAfter.empty()) answer.headers["retry-after"] = retryAfter;
    return answer;
}

Answer Silence(Stage stage = Stage::kService) {
    Answer answer;
    answer.failedAt = stage;
    answer.reason = "It does not answer.";
    return answer;
}

class TreePatience : public testing::Test {
protected:
    // 200 behind the last one.
    void Answers(std::initializer_list<Answer> answers) { m_answers.assign(answers); }

    PatientSource source{{[this](const std::string&) {
                              ++asked;
                              if (m_answers.empty()) return Status(200);
                              const Answer answer = m_answers.front();
                              m_answers.pop_front();
                              return answer;
                          },
                          [this] {
                              ++renewed;
                              return true;
                          },
                          [this](seconds pause) { slept.push_back(pause.count()); }}};
    int asked = 0;
    int renewed = 0;
    std::vector<long> slept;

private:
    std::deque<Answer> m_answers;
};

TEST_F(TreePatience, WaitsAsLongAsTheBmcSays) {
    Answers({Status(503, "7"), Status(503), Status(429, "600"), Status(503, "0")});
    EXPECT_EQ(source.Get("/x").httpCode, 200);
    EXPECT_THAT(slept, ElementsAre(7, 5, 60, 1));
    EXPECT_EQ(source.Ended(), "");
}

TEST_F(TreePatience, UnderstandsADate) {
    char date[64];
    const std::time_t then = std::time(nullptr) + 30;
    std::tm utc{};
    ASSERT_NE(std::strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", gmtime_r(&then, &utc)),
              0U);
    EXPECT_NEAR(static_cast<double>(PauseOf(Status(503, date)).count()), 29, 2);
    EXPECT_EQ(PauseOf(Status(503, "soon")).count(), 5);
    EXPECT_EQ(PauseOf(Status(503, "-3")).count(), 1);
}

TEST_F(TreePatience, LeavesAResourceThatStaysBusyAndABmcThatDoes) {
    Answers({});
    std::initializer_list<Answer> busy{Status(503), Status(503), Status(503),
                                       Status(503), Status(503), Status(503)};
    for (int resource = 1; resource <= 3; ++resource) {
        EXPECT_EQ(source.Ended(), "");
        Answers(busy);
        EXPECT_EQ(source.Get("/x").httpCode, 503);
    }
    EXPECT_THAT(slept, SizeIs(15));
    EXPECT_EQ(source.Ended(), "The BMC stays too busy to answer (HTTP 503).");
}

TEST_F(TreePatience, MakesALostSessionAnewOnce) {
    Answers({Status(200), Status(401), Status(200), Status(401), Status(401), Status(401)});
    source.Get("/a");
    EXPECT_EQ(source.Get("/b").httpCode, 200);
    EXPECT_EQ(renewed, 1);
    EXPECT_EQ(source.Get("/c").httpCode, 401);
    source.Get("/d");
    EXPECT_EQ(source.Ended(), "");
    source.Get("/e");
    EXPECT_EQ(renewed, 1);
    EXPECT_EQ(source.Ended(),
              "The BMC has ended the session again, after it was made anew (HTTP 401).");
}

TEST_F(TreePatience, OneResourceThatNobodyMayReadIsNoLostSession) {
    Answers({Status(401), Status(401), Status(200)});
    EXPECT_EQ(source.Get("/a").httpCode, 401);
    EXPECT_EQ(source.Get("/b").httpCode, 200);
    EXPECT_EQ(source.Ended(), "");
}

TEST_F(TreePatience, GivesUpABmcThatDoesNotAnswerThreeTimesInARow) {
    Answers({Silence(), Silence(), Status(404), Silence(), Silence(), Silence()});
    for (int n = 0; n < 5; ++n) source.Get("/x");
    EXPECT_EQ(source.Ended(), "");
    source.Get("/x");
    EXPECT_EQ(source.Ended(), "It does not answer.");
}

TEST_F(TreePatience, AnAnswerThatIsTooLongIsOne) {
    Answer answer = Silence();
    answer.tooLong = true;
    Answers({answer, answer, answer, answer});
    for (int n = 0; n < 4; ++n) source.Get("/x");
    EXPECT_EQ(source.Ended(), "");
}

TEST_F(TreePatience, GivesUpAtOnceWhoIsNotToBeTrusted) {
    Answers({Silence(Stage::kTrust)});
    source.Get("/x");
    EXPECT_EQ(source.Ended(), "It does not answer.");
}

}  // namespace
