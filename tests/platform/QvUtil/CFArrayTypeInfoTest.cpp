#include "CFArrayTypeInfo.h"

#include <gtest/gtest.h>

namespace {

using qor::kevra::CFArrayTypeInfo;

TEST(ArrayTypeInfo, IsTheTypeOfArraysBeforeMainStarts) {
    static const CFTypeID copy = CFArrayTypeInfo::CF_TYPE_ID;
    EXPECT_NE(copy, 0U);
    EXPECT_EQ(copy, CFArrayGetTypeID());
}

}  // namespace
