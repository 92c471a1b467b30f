#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

using Entries = std::vector<std::pair<const void*, const void*>>;

Owned<CFDictionaryRef> make(const Entries& entries) {
    std::vector<const void*> keys;
    std::vector<const void*> values;
    for (const auto& [key, value] : entries) {
        keys.push_back(key);
        values.push_back(value);
    }
    return own(CFDictionaryCreate(
        kCFAllocatorDefault, keys.data(), values.data(), static_cast<CFIndex>(entries.size()),
        &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// Keys and values whose references are counted. Two of the keys are equal, and two of the values.
class CFDictionary : public testing::Test {
  protected:
    // Returns how many references to the object containers hold.
    static CFIndex held(const Owned<CFStringRef>& object) {
        return CFGetRetainCount(object.get()) - 1;
    }

    const Owned<CFStringRef> one = makeString("one");
    const Owned<CFStringRef> alsoOne = makeString("one");
    const Owned<CFStringRef> two = makeString("two");
    const Owned<CFStringRef> ten = makeString("ten");
    const Owned<CFStringRef> alsoTen = makeString("ten");
    const Owned<CFStringRef> twenty = makeString("twenty");
};

TEST_F(CFDictionary, FindsValuesByEqualKeys) {
    const auto dictionary = make({{one.get(), ten.get()}, {two.get(), twenty.get()}});
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 2);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), alsoOne.get()), ten.get());
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), two.get()), twenty.get());
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), ten.get()), nullptr);
    EXPECT_NE(CFDictionaryContainsKey(dictionary.get(), alsoOne.get()), FALSE);
    EXPECT_EQ(CFDictionaryContainsKey(dictionary.get(), ten.get()), FALSE);
}

TEST_F(CFDictionary, FindsObjectsByEqualObjects) {
    const auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), makeString("caf\u00e9").get(), kCFBooleanTrue);
    CFDictionarySetValue(dictionary.get(), makeInteger(5).get(), kCFBooleanFalse);
    CFDictionarySetValue(dictionary.get(), makeData("x").get(), kCFNull);
    CFDictionarySetValue(dictionary.get(), makeDate(1).get(), CFSTR("date"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), makeString(u"caf\u00e9").get()),
              kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), makeReal(5.0).get()), kCFBooleanFalse);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), makeData("x").get()), kCFNull);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), makeDate(1).get()), CFSTR("date"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), makeString("x").get()), nullptr);
}

TEST_F(CFDictionary, KeepsTheFirstOfEqualKeys) {
    const auto dictionary = make({{one.get(), ten.get()}, {alsoOne.get(), twenty.get()}});
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), one.get()), ten.get());
    const void* key = nullptr;
    CFDictionaryGetKeysAndValues(dictionary.get(), &key, nullptr);
    EXPECT_EQ(key, one.get());
    EXPECT_EQ(held(alsoOne), 0);
    EXPECT_EQ(held(twenty), 0);
}

TEST_F(CFDictionary, MayBeEmpty) {
    const auto dictionary =
        own(CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0,
                               &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    ASSERT_TRUE(dictionary);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 0);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), CFSTR("key")), nullptr);
    EXPECT_TRUE(equal(dictionary.get(), makeDictionary().get()));
    CFDictionaryGetKeysAndValues(dictionary.get(), nullptr, nullptr);
}

TEST_F(CFDictionary, InvalidArgumentsAreRefused) {
    const auto create = [&](const void** keys, const void** values, CFIndex count) {
        return CFDictionaryCreate(kCFAllocatorDefault, keys, values, count,
                                  &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    };
    const void* values[] = {one.get()};
    EXPECT_EQ(create(values, values, -1), nullptr);
    EXPECT_EQ(create(nullptr, values, 1), nullptr);
    EXPECT_EQ(create(values, nullptr, 1), nullptr);
    EXPECT_EQ(CFDictionaryCreateMutable(kCFAllocatorDefault, -1, &kCFTypeDictionaryKeyCallBacks,
                                        &kCFTypeDictionaryValueCallBacks),
              nullptr);
}

TEST_F(CFDictionary, KnowsTheCallBacksForObjectsAndCopiesOfThem) {
    const CFDictionaryKeyCallBacks keys = kCFTypeDictionaryKeyCallBacks;
    const CFDictionaryValueCallBacks values = kCFTypeDictionaryValueCallBacks;
    CFDictionaryKeyCallBacks otherKeys = keys;
    otherKeys.hash = nullptr;
    CFDictionaryValueCallBacks otherValues = values;
    otherValues.equal = nullptr;
    const auto create = [](const CFDictionaryKeyCallBacks* ofKeys,
                           const CFDictionaryValueCallBacks* ofValues) {
        return own(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, ofKeys, ofValues));
    };
    EXPECT_TRUE(create(&keys, &values));
    EXPECT_FALSE(create(&otherKeys, &values));
    EXPECT_FALSE(create(&keys, &otherValues));
}

TEST_F(CFDictionary, WithoutCallBacksHoldsAnyPointers) {
    const auto dictionary =
        own(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, nullptr, nullptr));
    const std::vector<int> numbers(1000, 7);
    for (const int& number : numbers) {
        CFDictionarySetValue(dictionary.get(), &number, &number);
    }
    CFDictionarySetValue(dictionary.get(), one.get(), nullptr);
    CFDictionarySetValue(dictionary.get(), two.get(), ten.get());
    CFDictionaryRemoveValue(dictionary.get(), two.get());
    EXPECT_EQ(held(one) + held(two) + held(ten), 0);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1001);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &numbers[500]), &numbers[500]);
    EXPECT_EQ(CFDictionaryContainsKey(dictionary.get(), alsoOne.get()), FALSE);
    const void* value = ten.get();
    EXPECT_NE(CFDictionaryGetValueIfPresent(dictionary.get(), one.get(), &value), FALSE);
    EXPECT_EQ(value, nullptr);
}

TEST_F(CFDictionary, OfObjectsNeverEqualsOneOfPointers) {
    const auto create = [&](const CFDictionaryKeyCallBacks* keys,
                            const CFDictionaryValueCallBacks* values) {
        const void* key = one.get();
        const void* value = ten.get();
        return own(CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1, keys, values));
    };
    const auto* const keys = &kCFTypeDictionaryKeyCallBacks;
    const auto* const values = &kCFTypeDictionaryValueCallBacks;
    const auto ofObjects = make({{one.get(), ten.get()}});
    EXPECT_TRUE(equal(ofObjects.get(), create(keys, values).get()));
    for (const auto& other :
         {create(nullptr, values), create(keys, nullptr), create(nullptr, nullptr)}) {
        EXPECT_FALSE(equal(ofObjects.get(), other.get()));
        EXPECT_FALSE(equal(other.get(), ofObjects.get()));
        EXPECT_FALSE(writeDocument(other.get()));
    }
}

TEST_F(CFDictionary, ValueIsGivenOnlyIfTheKeyIsPresent) {
    const auto dictionary = make({{one.get(), ten.get()}});
    const void* value = twenty.get();
    EXPECT_EQ(CFDictionaryGetValueIfPresent(dictionary.get(), two.get(), &value), FALSE);
    EXPECT_EQ(value, twenty.get());
    EXPECT_NE(CFDictionaryGetValueIfPresent(dictionary.get(), alsoOne.get(), &value), FALSE);
    EXPECT_EQ(value, ten.get());
    EXPECT_NE(CFDictionaryGetValueIfPresent(dictionary.get(), one.get(), nullptr), FALSE);
    EXPECT_EQ(CFDictionaryGetValueIfPresent(dictionary.get(), two.get(), nullptr), FALSE);
}

TEST_F(CFDictionary, RetainsKeysAndValuesUntilItIsDestroyed) {
    {
        const auto dictionary = make({{one.get(), ten.get()}, {two.get(), ten.get()}});
        EXPECT_EQ(held(one), 1);
        EXPECT_EQ(held(two), 1);
        EXPECT_EQ(held(ten), 2);
    }
    EXPECT_EQ(held(one), 0);
    EXPECT_EQ(held(ten), 0);
}

TEST_F(CFDictionary, AddingKeepsTheValueOfAnExistingKey) {
    const auto dictionary = makeDictionary();
    CFDictionaryAddValue(dictionary.get(), one.get(), ten.get());
    CFDictionaryAddValue(dictionary.get(), alsoOne.get(), twenty.get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), one.get()), ten.get());
    EXPECT_EQ(held(one), 1);
    EXPECT_EQ(held(ten), 1);
    EXPECT_EQ(held(alsoOne), 0);
    EXPECT_EQ(held(twenty), 0);
}

TEST_F(CFDictionary, SettingReplacesTheValueAndKeepsTheKey) {
    const auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), one.get(), ten.get());
    CFDictionarySetValue(dictionary.get(), alsoOne.get(), twenty.get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), one.get()), twenty.get());
    EXPECT_EQ(held(one), 1);
    EXPECT_EQ(held(ten), 0);
    EXPECT_EQ(held(alsoOne), 0);
    EXPECT_EQ(held(twenty), 1);
}

TEST_F(CFDictionary, ValueMayBeReplacedByItself) {
    const auto dictionary = makeDictionary();
    {
        const auto value = makeString("the only value");
        CFDictionarySetValue(dictionary.get(), CFSTR("key"), value.get());
    }
    const void* const value = CFDictionaryGetValue(dictionary.get(), CFSTR("key"));
    CFDictionarySetValue(dictionary.get(), CFSTR("key"), value);
    EXPECT_EQ(CFGetRetainCount(value), 1);
    EXPECT_EQ(utf8Of(static_cast<CFStringRef>(value)), "the only value");
}

TEST_F(CFDictionary, RemovingReleasesKeyAndValue) {
    const auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), one.get(), ten.get());
    CFDictionarySetValue(dictionary.get(), two.get(), twenty.get());
    CFDictionaryRemoveValue(dictionary.get(), alsoOne.get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryContainsKey(dictionary.get(), one.get()), FALSE);
    EXPECT_NE(CFDictionaryContainsKey(dictionary.get(), two.get()), FALSE);
    EXPECT_EQ(held(one), 0);
    EXPECT_EQ(held(ten), 0);
    CFDictionaryRemoveValue(dictionary.get(), one.get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
}

// The key to remove may be the one that the dictionary holds.
TEST_F(CFDictionary, RemovingByItsOwnKeyIsSafe) {
    const auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), makeString("the only key").get(), kCFBooleanTrue);
    const void* key = nullptr;
    CFDictionaryGetKeysAndValues(dictionary.get(), &key, nullptr);
    CFDictionaryRemoveValue(dictionary.get(), key);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 0);
}

TEST_F(CFDictionary, CanBeFilledAgainAfterRemovingAll) {
    const auto dictionary = makeDictionary();
    for (int round = 0; round < 3; ++round) {
        CFDictionarySetValue(dictionary.get(), one.get(), ten.get());
        CFDictionarySetValue(dictionary.get(), two.get(), twenty.get());
        CFDictionaryRemoveAllValues(dictionary.get());
        EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 0);
        EXPECT_EQ(CFDictionaryContainsKey(dictionary.get(), one.get()), FALSE);
        EXPECT_EQ(held(one) + held(two) + held(ten) + held(twenty), 0);
    }
    CFDictionarySetValue(dictionary.get(), one.get(), ten.get());
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), one.get()), ten.get());
}

TEST_F(CFDictionary, EqualsOneWithEqualEntriesInAnyOrder) {
    const auto dictionary = make({{one.get(), ten.get()}, {two.get(), twenty.get()}});
    EXPECT_TRUE(equal(dictionary.get(),
                      make({{two.get(), twenty.get()}, {alsoOne.get(), alsoTen.get()}}).get()));
    EXPECT_EQ(CFHash(dictionary.get()),
              CFHash(make({{two.get(), twenty.get()}, {alsoOne.get(), alsoTen.get()}}).get()));
    EXPECT_FALSE(
        equal(dictionary.get(), make({{one.get(), twenty.get()}, {two.get(), ten.get()}}).get()));
    EXPECT_FALSE(
        equal(make({{one.get(), ten.get()}}).get(), make({{one.get(), twenty.get()}}).get()));
    EXPECT_FALSE(equal(make({{one.get(), ten.get()}}).get(), make({{two.get(), ten.get()}}).get()));
    EXPECT_FALSE(equal(dictionary.get(), make({{one.get(), ten.get()}}).get()));
    EXPECT_FALSE(equal(dictionary.get(),
                       make({{one.get(), ten.get()}, {twenty.get(), twenty.get()}}).get()));
}

TEST_F(CFDictionary, CannotBeChangedIfImmutable) {
    const auto dictionary = make({{one.get(), ten.get()}});
    auto* const asMutable = const_cast<CFMutableDictionaryRef>(dictionary.get());
    CFDictionaryAddValue(asMutable, two.get(), twenty.get());
    CFDictionarySetValue(asMutable, one.get(), twenty.get());
    CFDictionarySetValue(asMutable, two.get(), twenty.get());
    CFDictionaryRemoveValue(asMutable, one.get());
    CFDictionaryRemoveAllValues(asMutable);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), one.get()), ten.get());
    EXPECT_EQ(held(two), 0);
    EXPECT_EQ(held(twenty), 0);
}

TEST_F(CFDictionary, KeysAndValuesAreInTheSameOrder) {
    const auto dictionary = makeDictionary();
    for (int index = 0; index < 100; ++index) {
        const auto string = makeString(std::to_string(index));
        CFDictionarySetValue(dictionary.get(), string.get(), string.get());
    }
    std::vector<const void*> keys(100);
    std::vector<const void*> values(100);
    std::vector<const void*> sameKeys(100);
    std::vector<const void*> sameValues(100);
    CFDictionaryGetKeysAndValues(dictionary.get(), keys.data(), values.data());
    CFDictionaryGetKeysAndValues(dictionary.get(), sameKeys.data(), nullptr);
    CFDictionaryGetKeysAndValues(dictionary.get(), nullptr, sameValues.data());
    EXPECT_EQ(keys, values);
    EXPECT_EQ(keys, sameKeys);
    EXPECT_EQ(keys, sameValues);
    EXPECT_EQ(std::set<const void*>(keys.begin(), keys.end()).size(), 100U);
}

TEST_F(CFDictionary, FunctionIsAppliedToEveryEntry) {
    const auto dictionary = make({{one.get(), ten.get()}, {two.get(), twenty.get()}});
    std::map<const void*, const void*> seen;
    CFDictionaryApplyFunction(
        dictionary.get(),
        [](const void* key, const void* value, void* context) {
            static_cast<std::map<const void*, const void*>*>(context)->emplace(key, value);
        },
        &seen);
    EXPECT_EQ(seen, (std::map<const void*, const void*>{{one.get(), ten.get()},
                                                        {two.get(), twenty.get()}}));
}

TEST_F(CFDictionary, HoldsManyKeys) {
    constexpr int kCount = 100000;
    const auto dictionary = makeDictionary();
    const auto key = [](int index) { return makeString("key " + std::to_string(index)); };
    const auto valueOf = [&](int index) {
        const void* const value = CFDictionaryGetValue(dictionary.get(), key(index).get());
        SInt32 number = -1;
        if (value != nullptr) {
            CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt32Type, &number);
        }
        return number;
    };
    for (int index = 0; index < kCount; ++index) {
        CFDictionaryAddValue(dictionary.get(), key(index).get(), makeInteger(index).get());
    }
    ASSERT_EQ(CFDictionaryGetCount(dictionary.get()), kCount);
    for (int index = 0; index < kCount; ++index) {
        ASSERT_EQ(valueOf(index), index);
    }
    for (int index = 0; index < kCount; index += 2) {
        CFDictionaryRemoveValue(dictionary.get(), key(index).get());
    }
    ASSERT_EQ(CFDictionaryGetCount(dictionary.get()), kCount / 2);
    for (int index = 0; index < kCount; ++index) {
        ASSERT_EQ(valueOf(index), index % 2 == 0 ? -1 : index);
    }
}

// Applies random operations to a dictionary and to a map. The keys are few, so many of them exist
// already.
void walk(unsigned seed, int keyCount, int steps) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto below = [&random](int limit) {
        return static_cast<int>(random() % static_cast<unsigned>(limit));
    };
    const auto dictionary = makeDictionary();
    std::map<int, int> model;
    for (int step = 0; step < steps; ++step) {
        const int key = below(keyCount);
        const int value = below(1000);
        const auto keyObject = makeInteger(key);
        const auto valueObject = makeInteger(value);
        const int operation = below(1000);
        if (operation < 300) {
            CFDictionaryAddValue(dictionary.get(), keyObject.get(), valueObject.get());
            model.emplace(key, value);
        } else if (operation < 600) {
            CFDictionarySetValue(dictionary.get(), keyObject.get(), valueObject.get());
            model[key] = value;
        } else if (operation < 998) {
            CFDictionaryRemoveValue(dictionary.get(), keyObject.get());
            model.erase(key);
        } else if (operation < 999) {
            CFDictionaryRemoveAllValues(dictionary.get());
            model.clear();
        }
        ASSERT_EQ(CFDictionaryGetCount(dictionary.get()), static_cast<CFIndex>(model.size()));
        const auto place = model.find(below(keyCount));
        if (place != model.end()) {
            const void* found = nullptr;
            ASSERT_NE(CFDictionaryGetValueIfPresent(dictionary.get(),
                                                    makeInteger(place->first).get(), &found),
                      FALSE);
            ASSERT_TRUE(equal(found, makeInteger(place->second).get()));
        }
    }
    std::vector<const void*> keys(model.size());
    std::vector<const void*> values(model.size());
    CFDictionaryGetKeysAndValues(dictionary.get(), keys.data(), values.data());
    const auto numberOf = [](const void* object) {
        SInt32 number = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(object), kCFNumberSInt32Type, &number);
        return number;
    };
    std::map<int, int> left;
    for (std::size_t entry = 0; entry < keys.size(); ++entry) {
        left[numberOf(keys[entry])] = numberOf(values[entry]);
    }
    EXPECT_EQ(left, model);
}

TEST_F(CFDictionary, BehavesLikeAMap) {
    for (unsigned seed = 0; seed < 30; ++seed) {
        walk(seed, 1 + static_cast<int>(seed * seed), 3000);
    }
}

}  // namespace
}  // namespace qv::tests
