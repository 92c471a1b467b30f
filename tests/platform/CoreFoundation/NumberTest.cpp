// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

template <class T>
constexpr CFNumberType kTypeOf = kCFNumberSInt8Type;
template <>
constexpr CFNumberType kTypeOf<SInt16> = kCFNumberSInt16Type;
template <>
constexpr CFNumberType kTypeOf<SInt32> = kCFNumberSInt32Type;
template <>
constexpr CFNumberType kTypeOf<SInt64> = kCFNumberSInt64Type;
template <>
constexpr CFNumberType kTypeOf<float> = kCFNumberFloat32Type;
template <>
constexpr CFNumberType kTypeOf<double> = kCFNumberFloat64Type;

template <class T>
Owned<CFNumberRef> make(T value) {
    return own(CFNumberCreate(kCFAllocatorDefault, kTypeOf<T>, &value));
}

// The value of a number as a type, and whether that value equals the number.
template <class T>
struct Taken {
    T value;
    bool isSame;
    bool operator==(const Taken& other) const {
        return value == other.value && isSame == other.isSame;
    }
    friend std::ostream& operator<<(std::ostream& out, const Taken& taken) {
        return out << +taken.value << (taken.isSame ? ", equal" : ", not equal");
    }
};

template <class T>
Taken<T> take(const Owned<CFNumberRef>& number) {
    // The neighbours of the value must not be written.
    T values[] = {T(77), T(77), T(77)};
    const bool isSame = CFNumberGetValue(number.get(), kTypeOf<T>, &values[1]) != FALSE;
    EXPECT_EQ(values[0], T(77));
    EXPECT_EQ(values[2], T(77));
    return {values[1], isSame};
}

// Returns a number from a document. It may be over 2^63-1.
Owned<CFNumberRef> documentNumber(const std::string& digits) {
    return own(
        static_cast<CFNumberRef>(readDocument("<integer>" + digits + "</integer>").release()));
}

template <class T>
class CFNumberOfType : public testing::Test {};
using Types = testing::Types<SInt8, SInt16, SInt32, SInt64, float, double>;
TYPED_TEST_SUITE(CFNumberOfType, Types);

TYPED_TEST(CFNumberOfType, HasTheValueItWasCreatedFrom) {
    using Limits = std::numeric_limits<TypeParam>;
    for (const TypeParam value : {TypeParam(0), TypeParam(1), TypeParam(-1), TypeParam(100),
                                  Limits::max(), Limits::lowest(), Limits::min()}) {
        const auto number = make(value);
        EXPECT_EQ(take<TypeParam>(number), (Taken<TypeParam>{value, true}));
        EXPECT_EQ(CFNumberIsFloatType(number.get()) != FALSE, std::is_floating_point_v<TypeParam>);
    }
}

TYPED_TEST(CFNumberOfType, SmallWholeNumberFitsEveryType) {
    for (const int value : {0, 1, -1, 100, 127, -128}) {
        const auto number = make(static_cast<TypeParam>(value));
        EXPECT_EQ(take<SInt8>(number), (Taken<SInt8>{static_cast<SInt8>(value), true}));
        EXPECT_EQ(take<SInt16>(number), (Taken<SInt16>{static_cast<SInt16>(value), true}));
        EXPECT_EQ(take<SInt32>(number), (Taken<SInt32>{value, true}));
        EXPECT_EQ(take<SInt64>(number), (Taken<SInt64>{value, true}));
        EXPECT_EQ(take<float>(number), (Taken<float>{static_cast<float>(value), true}));
        EXPECT_EQ(take<double>(number), (Taken<double>{static_cast<double>(value), true}));
    }
}

TYPED_TEST(CFNumberOfType, EqualsTheSameNumberOfEveryOtherType) {
    const auto number = make(TypeParam(5));
    const auto check = [&number](const auto& other) {
        EXPECT_TRUE(equal(number.get(), other.get()));
        EXPECT_EQ(CFHash(number.get()), CFHash(other.get()));
    };
    check(make(SInt8(5)));
    check(make(SInt16(5)));
    check(make(SInt32(5)));
    check(make(SInt64(5)));
    check(make(5.0F));
    check(make(5.0));
    EXPECT_FALSE(equal(number.get(), make(SInt64(6)).get()));
    EXPECT_FALSE(equal(number.get(), make(5.5).get()));
}

TEST(CFNumber, TypesOfTheSecondGroupHaveTheSizeOfTheCTypes) {
    const auto check = [](CFNumberType type, auto value) {
        const auto number = own(CFNumberCreate(kCFAllocatorDefault, type, &value));
        decltype(value) values[] = {0, 0, 0};
        EXPECT_NE(CFNumberGetValue(number.get(), type, &values[1]), FALSE) << type;
        EXPECT_EQ(values[0], 0) << type;
        EXPECT_EQ(values[1], value) << type;
        EXPECT_EQ(values[2], 0) << type;
    };
    check(kCFNumberCharType, static_cast<char>('x'));
    check(kCFNumberShortType, static_cast<short>(-12345));
    check(kCFNumberIntType, -1234567890);
    check(kCFNumberLongType, -1234567890123456789L);
    check(kCFNumberLongLongType, -1234567890123456789LL);
    check(kCFNumberFloatType, 2.5F);
    check(kCFNumberDoubleType, 0.1);
    check(kCFNumberCFIndexType, static_cast<CFIndex>(-1234567890123456789L));
    check(kCFNumberNSIntegerType, -1234567890123456789L);
    check(kCFNumberCGFloatType, 0.1);
}

TEST(CFNumber, UnknownTypeIsRefused) {
    const SInt64 value = 5;
    for (const int type : {0, -1, 17, 1000}) {
        EXPECT_EQ(CFNumberCreate(kCFAllocatorDefault, static_cast<CFNumberType>(type), &value),
                  nullptr);
        SInt64 taken = 77;
        EXPECT_EQ(CFNumberGetValue(makeInteger(5).get(), static_cast<CFNumberType>(type), &taken),
                  FALSE);
        EXPECT_EQ(taken, 77);
    }
}

TEST(CFNumber, NullPointerToAValueIsRefused) {
    EXPECT_EQ(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, nullptr), nullptr);
    EXPECT_EQ(CFNumberGetValue(makeInteger(5).get(), kCFNumberSInt32Type, nullptr), FALSE);
}

TEST(CFNumber, WholeNumberOutOfRangeYieldsItsLowBits) {
    EXPECT_EQ(take<SInt8>(make(SInt64(300))), (Taken<SInt8>{44, false}));
    EXPECT_EQ(take<SInt8>(make(SInt64(128))), (Taken<SInt8>{-128, false}));
    EXPECT_EQ(take<SInt8>(make(SInt64(-129))), (Taken<SInt8>{127, false}));
    EXPECT_EQ(take<SInt16>(make(SInt64(0x12345))), (Taken<SInt16>{0x2345, false}));
    EXPECT_EQ(take<SInt32>(make(SInt64(1) << 31)),
              (Taken<SInt32>{std::numeric_limits<SInt32>::min(), false}));
    EXPECT_EQ(take<SInt32>(make(SInt64(1) << 32)), (Taken<SInt32>{0, false}));
}

TEST(CFNumber, LeastRealFitsAWholeType) {
    EXPECT_EQ(take<SInt32>(make(-2147483648.0)),
              (Taken<SInt32>{std::numeric_limits<SInt32>::min(), true}));
    EXPECT_EQ(take<SInt64>(make(-9223372036854775808.0)),
              (Taken<SInt64>{std::numeric_limits<SInt64>::min(), true}));
}

// Each way to store numbers has its limits at some power of two.
TEST(CFNumber, PowersOfTwoAndTheirNeighboursAreExact) {
    for (int bit = 0; bit < 63; ++bit) {
        for (const SInt64 sign : {1, -1}) {
            for (SInt64 offset = -2; offset <= 2; ++offset) {
                const SInt64 value = sign * (SInt64(1) << bit) + offset;
                const auto number = make(value);
                ASSERT_EQ(take<SInt64>(number), (Taken<SInt64>{value, true}));
                const bool fits = value >= std::numeric_limits<SInt32>::min() &&
                                  value <= std::numeric_limits<SInt32>::max();
                ASSERT_EQ(take<SInt32>(number), (Taken<SInt32>{static_cast<SInt32>(value), fits}));
                ASSERT_TRUE(equal(number.get(), make(value).get()));
                ASSERT_EQ(CFHash(number.get()), CFHash(make(value).get()));
                ASSERT_FALSE(equal(number.get(), make(value ^ 1).get()));
                const auto real = make(static_cast<double>(value));
                const bool isExact = take<double>(number).isSame;
                ASSERT_EQ(equal(number.get(), real.get()), isExact) << value;
                ASSERT_EQ(equal(real.get(), number.get()), isExact) << value;
                if (isExact) {
                    ASSERT_EQ(CFHash(number.get()), CFHash(real.get())) << value;
                }
            }
        }
    }
}

TEST(CFNumber, RealLosesItsFractionInAWholeType) {
    EXPECT_EQ(take<SInt32>(make(2.5)), (Taken<SInt32>{2, false}));
    EXPECT_EQ(take<SInt32>(make(-2.5)), (Taken<SInt32>{-2, false}));
    EXPECT_EQ(take<SInt8>(make(0.9F)), (Taken<SInt8>{0, false}));
    EXPECT_EQ(take<SInt64>(make(-0.9)), (Taken<SInt64>{0, false}));
}

TEST(CFNumber, RealOutOfRangeYieldsTheNearestLimit) {
    EXPECT_EQ(take<SInt32>(make(2147483648.0)), (Taken<SInt32>{2147483647, false}));
    EXPECT_EQ(take<SInt32>(make(-2147483649.0)),
              (Taken<SInt32>{std::numeric_limits<SInt32>::min(), false}));
    EXPECT_EQ(take<SInt8>(make(128.0)), (Taken<SInt8>{127, false}));
    EXPECT_EQ(take<SInt16>(make(-1e300)), (Taken<SInt16>{-32768, false}));
    EXPECT_EQ(take<SInt64>(make(9223372036854775808.0)),
              (Taken<SInt64>{std::numeric_limits<SInt64>::max(), false}));
    EXPECT_EQ(take<SInt64>(make(std::numeric_limits<double>::infinity())),
              (Taken<SInt64>{std::numeric_limits<SInt64>::max(), false}));
    EXPECT_EQ(take<SInt64>(make(-std::numeric_limits<double>::infinity())),
              (Taken<SInt64>{std::numeric_limits<SInt64>::min(), false}));
    EXPECT_FALSE(take<SInt32>(make(std::nan(""))).isSame);
}

TEST(CFNumber, RealTypeWithTooLittlePrecisionYieldsTheNearestValue) {
    EXPECT_EQ(take<float>(make(2.5)), (Taken<float>{2.5F, true}));
    EXPECT_EQ(take<float>(make(0.1)), (Taken<float>{0.1F, false}));
    EXPECT_EQ(take<double>(make(0.1F)), (Taken<double>{static_cast<double>(0.1F), true}));
    EXPECT_EQ(take<float>(make(SInt64(16777217))), (Taken<float>{16777216.0F, false}));
    EXPECT_EQ(take<double>(make(SInt64(9007199254740993))),
              (Taken<double>{9007199254740992.0, false}));
    EXPECT_EQ(take<double>(make(std::numeric_limits<SInt64>::max())),
              (Taken<double>{9223372036854775808.0, false}));
    EXPECT_EQ(take<float>(make(std::numeric_limits<double>::infinity())),
              (Taken<float>{std::numeric_limits<float>::infinity(), true}));
}

TEST(CFNumber, NotANumberStaysNotANumber) {
    EXPECT_TRUE(std::isnan(take<double>(make(std::nan(""))).value));
    EXPECT_TRUE(std::isnan(take<float>(make(std::nan(""))).value));
    EXPECT_TRUE(std::isnan(take<double>(make(std::nanf(""))).value));
}

TEST(CFNumber, RoundedNumberDoesNotEqualTheExactOne) {
    EXPECT_FALSE(equal(make(SInt64(9007199254740993)).get(), make(9007199254740992.0).get()));
    EXPECT_FALSE(
        equal(make(std::numeric_limits<SInt64>::max()).get(), make(9223372036854775808.0).get()));
    EXPECT_FALSE(equal(make(0.1).get(), make(0.1F).get()));
    EXPECT_TRUE(equal(make(0.1F).get(), make(static_cast<double>(0.1F)).get()));
    EXPECT_EQ(CFHash(make(0.1F).get()), CFHash(make(static_cast<double>(0.1F)).get()));
}

TEST(CFNumber, NotANumberEqualsEveryOther) {
    const auto one = make(std::nan(""));
    const auto other = make(-std::nan("1"));
    EXPECT_TRUE(equal(one.get(), other.get()));
    EXPECT_EQ(CFHash(one.get()), CFHash(other.get()));
    EXPECT_FALSE(equal(one.get(), make(0.0).get()));
    EXPECT_FALSE(equal(make(0.0).get(), one.get()));
    EXPECT_FALSE(equal(one.get(), make(SInt64(0)).get()));
}

// A real number beyond the range of whole numbers does not equal the nearest whole number.
TEST(CFNumber, RealOutOfRangeEqualsNoWholeNumber) {
    const auto least = make(std::numeric_limits<SInt64>::min());
    const auto largest = documentNumber("18446744073709551615");
    for (const double real :
         {-9223372036854777856.0, -1e300, 18446744073709551616.0, 1e300, 9223372036854777856.0}) {
        const auto number = make(real);
        EXPECT_FALSE(equal(least.get(), number.get())) << real;
        EXPECT_FALSE(equal(number.get(), least.get())) << real;
        EXPECT_FALSE(equal(largest.get(), number.get())) << real;
        EXPECT_FALSE(equal(number.get(), largest.get())) << real;
        EXPECT_EQ(CFHash(number.get()), CFHash(make(real).get())) << real;
    }
    EXPECT_TRUE(
        equal(documentNumber("9223372036854777856").get(), make(9223372036854777856.0).get()));
    EXPECT_FALSE(
        equal(documentNumber("9223372036854777857").get(), make(9223372036854777856.0).get()));
}

TEST(CFNumber, EqualZerosHaveTheSameHash) {
    if (equal(make(0.0).get(), make(-0.0).get())) {
        EXPECT_EQ(CFHash(make(0.0).get()), CFHash(make(-0.0).get()));
    }
    EXPECT_TRUE(equal(make(0.0).get(), make(SInt8(0)).get()));
    EXPECT_EQ(CFHash(make(0.0).get()), CFHash(make(SInt8(0)).get()));
}

TEST(CFNumber, FromADocumentMayExceedTheLargestType) {
    const auto number = documentNumber("18446744073709551615");
    EXPECT_EQ(CFNumberGetType(number.get()), kCFNumberSInt64Type);
    EXPECT_EQ(CFNumberIsFloatType(number.get()), FALSE);
    EXPECT_EQ(take<SInt64>(number), (Taken<SInt64>{-1, false}));
    EXPECT_EQ(take<SInt32>(number), (Taken<SInt32>{-1, false}));
    EXPECT_EQ(take<double>(number), (Taken<double>{18446744073709551616.0, false}));

    const auto power = documentNumber("9223372036854775808");
    EXPECT_EQ(take<double>(power), (Taken<double>{9223372036854775808.0, true}));
    EXPECT_TRUE(equal(power.get(), make(9223372036854775808.0).get()));
    EXPECT_EQ(CFHash(power.get()), CFHash(make(9223372036854775808.0).get()));
    EXPECT_FALSE(equal(power.get(), make(std::numeric_limits<SInt64>::min()).get()));
    EXPECT_FALSE(equal(number.get(), make(SInt64(-1)).get()));
}

}  // namespace
}  // namespace qv::tests
