// SPDX-License-Identifier: Apache-2.0

#include "cli/Suggestion.h"

#include <gtest/gtest.h>

#include <string>

namespace qv::host {
namespace {

TEST(ClosestWord, MisspeltWordFindsItsOriginal) {
    EXPECT_EQ(closestWord("registre", {"register", "unregister"}), "register");
    EXPECT_EQ(closestWord("unregistr", {"register", "unregister"}), "unregister");
}

TEST(ClosestWord, LetterCaseDoesNotMatter) {
    EXPECT_EQ(closestWord("LIST", {"level", "list"}), "list");
}

TEST(ClosestWord, DistantWordFindsNothing) {
    EXPECT_EQ(closestWord("quit", {"level", "restart"}), "");
    EXPECT_EQ(closestWord("", {"level"}), "");
}

TEST(ClosestWord, ShortWordIsNotMadeIntoAnything) {
    EXPECT_EQ(closestWord("x", {"set"}), "");
    EXPECT_EQ(closestWord("ab", {"list"}), "");
}

TEST(ClosestWord, NearestWinsAndAmongEqualsTheFirst) {
    EXPECT_EQ(closestWord("cart", {"card", "chart", "cart"}), "cart");
    EXPECT_EQ(closestWord("carx", {"card", "cart"}), "card");
}

TEST(ClosestWord, HugeWordFindsNothing) {
    EXPECT_EQ(closestWord(std::string(std::size_t{1} << 20, 'x'), {"list"}), "");
}

}  // namespace
}  // namespace qv::host
