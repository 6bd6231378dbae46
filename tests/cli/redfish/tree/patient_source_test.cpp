// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/tree/PatientSource.h"

#include <gmock/gmock.h>

#include <deque>

namespace {

using Kemffdc::Answer;
using Kemffdc::Stage;
using Kemffdc::Redfish::Tree::PatientSource;
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
                          [this](seconds pause) { slept.push_back(pause.count()); }}};
    int asked = 0;
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

TEST_F(TreePatience, GivesUpALoginThatIsRefusedThreeTimesInARow) {
    Answers({Status(401), Status(401), Status(200), Status(401), Status(401), Status(401)});
    for (int n = 0; n < 5; ++n) source.Get("/x");
    EXPECT_EQ(source.Ended(), "");
    source.Get("/x");
    EXPECT_EQ(source.Ended(), "The BMC does not accept the login any more (HTTP 401).");
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
