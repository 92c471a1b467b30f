// SPDX-License-Identifier: Apache-2.0

#include "CFArrayTypeInfo.h"

#include <gtest/gtest.h>

namespace {

using qor::kevra::CFArrayTypeInfo;

TEST(ArrayTypeInfo, IsTheTypeOfArrays) {
    EXPECT_EQ(CFArrayTypeInfo::CF_TYPE_ID, CFArrayGetTypeID());
}

}  // namespace
