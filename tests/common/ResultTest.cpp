// SPDX-License-Identifier: Apache-2.0

#include <QvResult.h>
#include <gtest/gtest.h>

namespace qv {
namespace {

TEST(ResultMeaning, NamesEachResultOfTheInterface) {
    EXPECT_STREQ(resultMeaning(QV_ERROR_SERIALIZE), "the answer could not be serialised");
    EXPECT_STREQ(resultMeaning(QV_ERROR_ARGUMENT), "the request is not valid");
    EXPECT_STREQ(resultMeaning(QV_ERROR_NO_MEMORY), "no memory for the answer");
}

TEST(ResultMeaning, SaysThatAnotherResultIsNotDefined) {
    EXPECT_STREQ(resultMeaning(-1), "a result that the interface does not define");
}

}  // namespace
}  // namespace qv
