// SPDX-License-Identifier: Apache-2.0

#include "server/DescriptorLimit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>

namespace qv::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;

TEST(DescriptorLimit, ClientsThatFitAreAllLetIn) {
    EXPECT_EQ(clientsWithin(10'000, 8, 1024), 1024U);
    EXPECT_EQ(clientsWithin(std::numeric_limits<std::size_t>::max(), 8, 1'000'000), 1'000'000U);
}

TEST(DescriptorLimit, ClientsLeaveDescriptorsToTheThreadsAndTheRest) {
    EXPECT_EQ(clientsWithin(1024, 2, 1024), 954U);
    EXPECT_EQ(clientsWithin(1024, 3, 1024), 951U);
    EXPECT_EQ(clientsWithin(1024, 2, 954), 954U);
    EXPECT_EQ(clientsWithin(71, 2, 1024), 1U);
}

TEST(DescriptorLimit, LimitWithoutAPlaceForOneClientIsAnError) {
    EXPECT_THROW(clientsWithin(3, 2, 1), std::runtime_error);
    try {
        clientsWithin(70, 2, 1024);
        FAIL() << "found a place";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("is 70,"), HasSubstr("needs 71 for one client")));
    }
}

}  // namespace
}  // namespace qv::host
