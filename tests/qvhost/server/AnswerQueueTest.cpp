#include "server/AnswerQueue.h"

#include <gtest/gtest.h>

#include <string>

#include "qvhost/FakePluginControl.h"
#include "qvhost/RawClient.h"

namespace qv::host {
namespace {

std::string sent(const AnswerQueue& answers) {
    std::string all;
    for (const std::string_view piece : answers.pieces()) {
        all += piece;
    }
    EXPECT_EQ(all.size(), answers.size());
    return all;
}

TEST(AnswerQueue, AnswersGoOutInTheirOrder) {
    AnswerQueue answers;
    EXPECT_EQ(sent(answers), "");
    answers.append(0, 1);
    answers.append(21006, 2, "no such command");
    EXPECT_EQ(sent(answers), frame(0, 1) + frame(21006, 2, "no such command"));
    EXPECT_EQ(answers.pieces().size(), 1U);
    answers.clear();
    answers.append(0, 3, "x");
    EXPECT_EQ(sent(answers), frame(0, 3, "x"));
}

TEST(AnswerQueue, LongAnswerIsSentFromThePluginsBuffer) {
    FakePluginControl control("answers at length");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    Plugin::Answer longAnswer = plugin.call(QV_COMMAND_GET_SERVICES, "");
    const char* const bytes = longAnswer.bytes().data();
    const std::string text(longAnswer.bytes());
    AnswerQueue answers;
    answers.append(0, 1, "a");
    answers.append(2, std::move(longAnswer));
    answers.append(0, 3, "b");
    ASSERT_EQ(answers.pieces().size(), 3U);
    EXPECT_EQ(answers.pieces()[1].data(), bytes);
    EXPECT_EQ(sent(answers), frame(0, 1, "a") + frame(0, 2, text) + frame(0, 3, "b"));
    EXPECT_EQ(control.record().back(), "answer");
    answers.clear();
    EXPECT_EQ(control.record().back(), "free");
    EXPECT_EQ(sent(answers), "");
}

TEST(AnswerQueue, ShortAnswerIsGivenBackAtOnce) {
    FakePluginControl control("answers and fails");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    AnswerQueue answers;
    answers.append(4, plugin.call(QV_COMMAND_GET_SERVICES, ""));
    EXPECT_EQ(control.record().back(), "free");
    EXPECT_EQ(sent(answers), frame(QV_ERROR_SERIALIZE, 4, "\xff"));
}

}  // namespace
}  // namespace qv::host
