// SPDX-License-Identifier: Apache-2.0

// Checks the host's interface as a C compiler sees it, in HostInterfaceTest.c.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QvPlugin.h"

extern "C" {
extern const HandlerEntry hostInterfaceRow;
extern const int hostInterfaceResults[4];
extern const int hostInterfaceCommands[4];
size_t hostInterfaceRowSize(void);
}

namespace qv::tests {
namespace {

using testing::ElementsAre;

TEST(HostInterface, RowTakesFortyEightBytesInC) {
    EXPECT_EQ(hostInterfaceRowSize(), 48U);
}

TEST(HostInterface, RowMadeInCIsReadInCpp) {
    EXPECT_EQ(hostInterfaceRow.command, 0x0202U);
    EXPECT_STREQ(hostInterfaceRow.name, "get services");
    EXPECT_EQ(hostInterfaceRow.handler(0x0202, nullptr, 0, nullptr, nullptr), QV_OK);
}

TEST(HostInterface, CodesHaveTheirValues) {
    EXPECT_THAT(hostInterfaceResults, ElementsAre(0, 20001, 20002, 20006));
    EXPECT_THAT(hostInterfaceCommands, ElementsAre(0x0102, 0x0200, 0x0201, 0x0202));
    EXPECT_EQ(QV_PLUGIN_ID_NAMING_SERVICE, 2);
}

}  // namespace
}  // namespace qv::tests
