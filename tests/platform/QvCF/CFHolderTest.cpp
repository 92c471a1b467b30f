// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

#include "QvCFHolder.h"

namespace {

using Holder = qor::kevra::CFHolder<CFMutableArrayRef>;

static_assert(!std::is_copy_constructible_v<Holder>);
static_assert(!std::is_copy_assignable_v<Holder>);
static_assert(std::is_nothrow_move_constructible_v<Holder>);
static_assert(std::is_nothrow_move_assignable_v<Holder>);
static_assert(!std::is_convertible_v<CFMutableArrayRef, Holder>);
static_assert(sizeof(Holder) == sizeof(CFMutableArrayRef));

// Holds an object, with one reference of the test itself.
class CFHolderTest : public testing::Test {
  protected:
    CFMutableArrayRef another() const {
        CFRetain(object.get());
        return object.get();
    }
    CFIndex held() const { return CFGetRetainCount(object.get()) - 1; }

    const Holder object{CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks)};
};

TEST_F(CFHolderTest, ReleasesItsReference) {
    {
        const Holder holder(another());
        EXPECT_EQ(held(), 1);
        EXPECT_TRUE(holder);
        EXPECT_EQ(holder.get(), object.get());
    }
    EXPECT_EQ(held(), 0);
}

TEST_F(CFHolderTest, MayHoldNull) {
    const Holder empty;
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty.get(), nullptr);
    EXPECT_FALSE(Holder(nullptr));
}

TEST_F(CFHolderTest, ReleasePassesTheReferenceToTheCaller) {
    Holder holder(another());
    Holder next(holder.release());
    EXPECT_FALSE(holder);
    EXPECT_TRUE(next);
    EXPECT_EQ(held(), 1);
}

TEST_F(CFHolderTest, MovesWithoutAnotherReference) {
    Holder first(another());
    Holder second(std::move(first));
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): a moved holder is empty
    EXPECT_EQ(second.get(), object.get());
    EXPECT_EQ(held(), 1);
}

TEST_F(CFHolderTest, AssignmentReleasesTheFormerReference) {
    Holder first(another());
    Holder second(another());
    EXPECT_EQ(held(), 2);
    second = std::move(first);
    EXPECT_EQ(second.get(), object.get());
    EXPECT_EQ(held(), 1);
    second = Holder();
    EXPECT_EQ(held(), 0);
}

TEST_F(CFHolderTest, AssignmentToItselfChangesNothing) {
    Holder holder(another());
    Holder& same = holder;
    holder = std::move(same);
    EXPECT_EQ(holder.get(), object.get());
    EXPECT_EQ(held(), 1);
}

}  // namespace
