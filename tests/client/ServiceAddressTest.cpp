// SPDX-License-Identifier: Apache-2.0

#include "ServiceAddress.h"

#include <gtest/gtest.h>

#include <string>

namespace qv::host {
namespace {

TEST(ServiceAddress, MayBeAnyTextThatTheFileHolds) {
    for (const std::string& address :
         {std::string("a"), std::string("/run/a b.sock\n\x1b[31m"), std::string("\xc3\xa9"),
          std::string("a\xef\xbb\xbf"), std::string("\xef\xbb\xbd"),
          std::string(kLongestAddress, 'x')}) {
        EXPECT_EQ(problemOfAddress(address), nullptr) << address;
    }
}

TEST(ServiceAddress, HasAProblemIfTheFileWouldHoldAnotherText) {
    EXPECT_STREQ(problemOfAddress(""), "is empty");
    EXPECT_STREQ(problemOfAddress(std::string(kLongestAddress + 1, 'x')), "is longer than 4 KiB");
    EXPECT_STREQ(problemOfAddress(std::string("a\0b", 3)), "holds a zero byte");
    EXPECT_STREQ(problemOfAddress(std::string("\0", 1)), "holds a zero byte");
    EXPECT_STREQ(problemOfAddress("\xef\xbb\xbf"
                                  "a"),
                 "begins with a byte order mark (U+FEFF)");
    EXPECT_STREQ(problemOfAddress("a\xff"), "is not UTF-8");
    EXPECT_STREQ(problemOfAddress("\xef\xbb"), "is not UTF-8");
    EXPECT_STREQ(problemOfAddress("\xed\xa0\x80"), "is not UTF-8");
}

}  // namespace
}  // namespace qv::host
