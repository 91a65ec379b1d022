#include <logger/node/Answer.h>

#include <gtest/gtest.h>

using vlogger::Answer;
using vlogger::Bytes;
using vlogger::findAnswer;

TEST(AnswerTest, LongerMessageThatBeginsWithTheRequestFits)
{
    const Answer answers[] = {{.request = {0x22, 0xF1}, .mask = {}, .response = {1}}};
    EXPECT_EQ(findAnswer(answers, Bytes{0x22, 0xF1, 0x90}), &answers[0]);
    EXPECT_EQ(findAnswer(answers, Bytes{0x22, 0xF1}), &answers[0]);
    EXPECT_EQ(findAnswer(answers, Bytes{0x22}), nullptr);
    EXPECT_EQ(findAnswer(answers, Bytes{}), nullptr);
}

TEST(AnswerTest, OnlyTheBitsOfTheMaskCount)
{
    const Answer answers[] = {{.request = {0x22, 0x50}, .mask = {0xFF, 0xF0}, .response = {1}}};
    EXPECT_EQ(findAnswer(answers, Bytes{0x22, 0x5A}), &answers[0]);
    EXPECT_EQ(findAnswer(answers, Bytes{0x22, 0x6A}), nullptr);
    EXPECT_EQ(findAnswer(answers, Bytes{0x23, 0x5A}), nullptr);
}

TEST(AnswerTest, FirstFittingAnswerIsTaken)
{
    const Answer answers[] = {{.request = {0x22, 0xF1}, .mask = {}, .response = {1}},
                              {.request = {}, .mask = {}, .response = {2}}};
    EXPECT_EQ(findAnswer(answers, Bytes{0x22, 0xF1}), &answers[0]);
    EXPECT_EQ(findAnswer(answers, Bytes{0x22, 0xF2}), &answers[1]);
    EXPECT_EQ(findAnswer(answers, Bytes{}), &answers[1]);
}

TEST(AnswerTest, EchoAnswersWithWhatHasArrived)
{
    const Answer echo{.request = {0xBA}, .mask = {}, .response = {}, .echo = true};
    EXPECT_EQ(responseTo(echo, Bytes{0xBA, 1, 2}), (Bytes{0xBA, 1, 2}));
}

TEST(AnswerTest, DiagnosticAnswersAreTesterPresentAndVehicleIdentification)
{
    const std::vector<Answer> answers = vlogger::diagnosticAnswers("ABC");
    const Answer* const present = findAnswer(answers, Bytes{0x3E, 0x00});
    ASSERT_NE(present, nullptr);
    EXPECT_EQ(present->response, (Bytes{0x7E, 0x00}));
    const Answer* const identification = findAnswer(answers, Bytes{0x22, 0xF1, 0x90});
    ASSERT_NE(identification, nullptr);
    EXPECT_EQ(identification->response, (Bytes{0x62, 0xF1, 0x90, 'A', 'B', 'C'}));
    EXPECT_EQ(findAnswer(answers, Bytes{0x22, 0xF1, 0x91}), nullptr);
}
