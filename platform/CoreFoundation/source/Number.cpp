// SPDX-License-Identifier: Apache-2.0

#include "Number.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "Hash.h"
#include "TypeBehavior.h"

namespace cf {

namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

// Returns the one of the first six types that is equivalent to the type, or 0 if there is none.
CFNumberType canonicalType(CFNumberType type) {
    switch (type) {
        case kCFNumberSInt8Type:
        case kCFNumberCharType:
            return kCFNumberSInt8Type;
        case kCFNumberSInt16Type:
        case kCFNumberShortType:
            return kCFNumberSInt16Type;
        case kCFNumberSInt32Type:
        case kCFNumberIntType:
            return kCFNumberSInt32Type;
        case kCFNumberSInt64Type:
        case kCFNumberLongType:
        case kCFNumberLongLongType:
        case kCFNumberCFIndexType:
        case kCFNumberNSIntegerType:
            return kCFNumberSInt64Type;
        case kCFNumberFloat32Type:
        case kCFNumberFloatType:
            return kCFNumberFloat32Type;
        case kCFNumberFloat64Type:
        case kCFNumberDoubleType:
        case kCFNumberCGFloatType:
            return kCFNumberFloat64Type;
    }
    return static_cast<CFNumberType>(0);
}

template <typename T>
T load(const void* value) {
    T loaded = {};
    std::memcpy(&loaded, value, sizeof loaded);
    return loaded;
}

template <typename T>
std::int64_t loadWhole(const void* value) {
    return load<T>(value);
}

template <typename T>
void store(void* value, T stored) {
    std::memcpy(value, &stored, sizeof stored);
}

// Returns the whole part of `real`, limited to the range of the type. Returns the least number if
// `real` is not a number.
template <typename T>
T toWhole(double real) {
    // The greatest value plus one is a power of two, which a double holds exactly.
    const double limit = std::ldexp(1.0, std::numeric_limits<T>::digits);
    if (!(real >= -limit)) {
        return std::numeric_limits<T>::min();
    }
    return real >= limit ? std::numeric_limits<T>::max() : static_cast<T>(real);
}

template <typename T>
bool readWhole(const Number& number, void* value) {
    if (number.kind == Number::Kind::Real) {
        const T whole = toWhole<T>(number.real);
        store(value, whole);
        // The greatest value of a 64-bit type becomes 2^63 as a double, so the limit needs a check
        // of its own.
        return static_cast<double>(whole) == number.real &&
               number.real < std::ldexp(1.0, std::numeric_limits<T>::digits);
    }
    const T whole = static_cast<T>(number.whole);
    store(value, whole);
    return number.kind == Number::Kind::Signed && whole == number.whole;
}

double asDouble(const Number& number) {
    switch (number.kind) {
        case Number::Kind::Signed:
            return static_cast<double>(number.whole);
        case Number::Kind::Large:
            return static_cast<double>(static_cast<std::uint64_t>(number.whole));
        case Number::Kind::Real:
            break;
    }
    return number.real;
}

// Returns whether the number equals `real`.
bool isExactly(const Number& number, double real) {
    switch (number.kind) {
        case Number::Kind::Signed:
            return real >= -kTwoTo63 && real < kTwoTo63 &&
                   static_cast<std::int64_t>(real) == number.whole && std::trunc(real) == real;
        case Number::Kind::Large:
            return real >= kTwoTo63 && real < kTwoTo64 &&
                   static_cast<std::uint64_t>(real) == static_cast<std::uint64_t>(number.whole);
        case Number::Kind::Real:
            break;
    }
    return number.real == real || (std::isnan(number.real) && std::isnan(real));
}

template <typename T>
bool readReal(const Number& number, void* value) {
    const double exact = asDouble(number);
    const T real = static_cast<T>(exact);
    store(value, real);
    return isExactly(number, static_cast<double>(real));
}

struct NumberObject : Object {
    explicit NumberObject(const Number& itsNumber) : Object(Type::Number), number(itsNumber) {}

    Number number;
};

// A reference that holds a number has three parts, from the lowest bit on: the bit that
// distinguishes it from an address, three bits for `givenAs`, and the number.
constexpr unsigned kGivenAsShift = 1;
constexpr unsigned kWholeShift = 4;
constexpr std::int64_t kWholeLimit = std::int64_t{1} << (63 - kWholeShift);

static_assert(sizeof(std::uintptr_t) == sizeof(std::int64_t));

bool fitsReference(const Number& number) {
    return number.kind == Number::Kind::Signed && number.whole >= -kWholeLimit &&
           number.whole < kWholeLimit;
}

const Object* intoReference(const Number& number) {
    return reinterpret_cast<const Object*>(static_cast<std::uint64_t>(number.whole) << kWholeShift |
                                           std::uintptr_t{number.givenAs} << kGivenAsShift | 1U);
}

Number outOfReference(const Object* object) {
    const auto bits = reinterpret_cast<std::uintptr_t>(object);
    Number number = {};
    number.givenAs = static_cast<std::uint8_t>(bits >> kGivenAsShift & 7);
    number.whole = static_cast<std::int64_t>(bits) >> kWholeShift;
    return number;
}

void endNumber(Object& object, Ending& /*ending*/) {
    dispose(&static_cast<NumberObject&>(object));
}

bool equalNumbers(const Object* one, const Object* other, Comparison& /*comparison*/) {
    const Number left = numberOf(one);
    const Number right = numberOf(other);
    if (right.kind == Number::Kind::Real) {
        return isExactly(left, right.real);
    }
    if (left.kind == Number::Kind::Real) {
        return isExactly(right, left.real);
    }
    return left.kind == right.kind && left.whole == right.whole;
}

// Returns the same hash for a whole number and the real number that equals it.
CFHashCode hashNumber(const Object* object) {
    const Number number = numberOf(object);
    if (number.kind != Number::Kind::Real) {
        return hashWord(static_cast<std::uint64_t>(number.whole));
    }
    if (number.real >= -kTwoTo63 && number.real < kTwoTo63 &&
        std::trunc(number.real) == number.real) {
        return hashWord(static_cast<std::uint64_t>(static_cast<std::int64_t>(number.real)));
    }
    if (number.real >= kTwoTo63 && number.real < kTwoTo64) {
        return hashWord(static_cast<std::uint64_t>(number.real));
    }
    return std::isnan(number.real) ? hashWord(0) : hashBytes(&number.real, sizeof number.real);
}

}  // namespace

const TypeBehavior kNumberBehavior = {endNumber, equalNumbers, hashNumber};

const Object* makeNumber(const Number& number, CFAllocatorRef allocator) {
    return fitsReference(number) && allocator != kCFAllocatorNull
               ? intoReference(number)
               : create<NumberObject>(allocator, 0, number);
}

const Object* makeNumber(std::int64_t number) {
    return makeNumber({Number::Kind::Signed, kCFNumberSInt64Type, {number}});
}

const Object* makeNumber(std::uint64_t number) {
    return makeNumber({number > INT64_MAX ? Number::Kind::Large : Number::Kind::Signed,
                       kCFNumberSInt64Type,
                       {static_cast<std::int64_t>(number)}});
}

const Object* makeNumber(double number) {
    Number real = {Number::Kind::Real, kCFNumberFloat64Type, {}};
    real.real = number;
    return makeNumber(real);
}

Number numberOf(const Object* object) {
    return standsInReference(object) ? outOfReference(object)
                                     : static_cast<const NumberObject*>(object)->number;
}

bool readNumber(const Number& number, CFNumberType type, void* value) {
    switch (canonicalType(type)) {
        case kCFNumberSInt8Type:
            return readWhole<std::int8_t>(number, value);
        case kCFNumberSInt16Type:
            return readWhole<std::int16_t>(number, value);
        case kCFNumberSInt32Type:
            return readWhole<std::int32_t>(number, value);
        case kCFNumberSInt64Type:
            return readWhole<std::int64_t>(number, value);
        case kCFNumberFloat32Type:
            return readReal<float>(number, value);
        case kCFNumberFloat64Type:
            return readReal<double>(number, value);
        default:
            return false;
    }
}

}  // namespace cf

using cf::Number;

CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value) {
    if (value == nullptr) {
        return nullptr;
    }
    const CFNumberType canonical = cf::canonicalType(type);
    Number number = {};
    number.givenAs = static_cast<std::uint8_t>(canonical);
    switch (canonical) {
        case kCFNumberSInt8Type:
            number.whole = cf::loadWhole<std::int8_t>(value);
            break;
        case kCFNumberSInt16Type:
            number.whole = cf::loadWhole<std::int16_t>(value);
            break;
        case kCFNumberSInt32Type:
            number.whole = cf::loadWhole<std::int32_t>(value);
            break;
        case kCFNumberSInt64Type:
            number.whole = cf::loadWhole<std::int64_t>(value);
            break;
        case kCFNumberFloat32Type:
            number.kind = Number::Kind::Real;
            number.real = double{cf::load<float>(value)};
            break;
        case kCFNumberFloat64Type:
            number.kind = Number::Kind::Real;
            number.real = cf::load<double>(value);
            break;
        default:
            return nullptr;
    }
    return static_cast<CFNumberRef>(static_cast<CFTypeRef>(cf::makeNumber(number, allocator)));
}

CFTypeID CFNumberGetTypeID() {
    return cf::typeId(cf::Type::Number);
}

CFNumberType CFNumberGetType(CFNumberRef number) {
    return static_cast<CFNumberType>(cf::numberOf(cf::asObject(number)).givenAs);
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
    return cf::numberOf(cf::asObject(number)).kind == Number::Kind::Real ? TRUE : FALSE;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
    return value != nullptr && cf::readNumber(cf::numberOf(cf::asObject(number)), type, value)
               ? TRUE
               : FALSE;
}
