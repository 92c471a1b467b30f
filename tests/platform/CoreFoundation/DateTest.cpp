// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

TEST(CFDate, HoldsItsTime) {
    for (const double time : {0.0, 1.5, -63114076800.0, 252423993599.0, 1e300}) {
        EXPECT_EQ(CFDateGetAbsoluteTime(makeDate(time).get()), time);
    }
}

TEST(CFDate, EqualTimesAreEqual) {
    EXPECT_TRUE(equal(makeDate(12.5).get(), makeDate(12.5).get()));
    EXPECT_EQ(CFHash(makeDate(12.5).get()), CFHash(makeDate(12.5).get()));
    EXPECT_FALSE(equal(makeDate(12.5).get(), makeDate(12.25).get()));
    EXPECT_FALSE(equal(makeDate(12).get(), makeInteger(12).get()));
    EXPECT_TRUE(equal(makeDate(0.0).get(), makeDate(-0.0).get()));
    EXPECT_EQ(CFHash(makeDate(0.0).get()), CFHash(makeDate(-0.0).get()));
}

TEST(CFDate, NotANumberEqualsEveryOther) {
    const auto one = makeDate(std::nan(""));
    const auto other = makeDate(-std::nan("1"));
    EXPECT_TRUE(equal(one.get(), other.get()));
    EXPECT_EQ(CFHash(one.get()), CFHash(other.get()));
    EXPECT_FALSE(equal(one.get(), makeDate(0).get()));
    EXPECT_FALSE(equal(makeDate(0).get(), one.get()));
}

TEST(CFDate, IsWrittenInUtcRoundedDownToTheSecond) {
    const auto written = [](double time) {
        const std::string xml = writeDocument(makeDate(time).get()).value_or("");
        const auto begin = xml.find("<date>") + 6;
        return xml.substr(begin, xml.find("</date>") - begin);
    };
    EXPECT_EQ(written(0), "2001-01-01T00:00:00Z");
    EXPECT_EQ(written(0.999), "2001-01-01T00:00:00Z");
    EXPECT_EQ(written(-0.5), "2000-12-31T23:59:59Z");
    EXPECT_EQ(written(-1), "2000-12-31T23:59:59Z");
    EXPECT_EQ(written(-978307200), "1970-01-01T00:00:00Z");
    EXPECT_EQ(written(-978307200.25), "1969-12-31T23:59:59Z");
    EXPECT_EQ(written(604672496), "2020-02-29T12:34:56Z");
    EXPECT_EQ(written(-63113904000), "0001-01-01T00:00:00Z");
    EXPECT_EQ(written(252423993599), "9999-12-31T23:59:59Z");
}

}  // namespace
}  // namespace qv::tests
