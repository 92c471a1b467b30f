#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/CoreFoundation/CountingCallBacks.h"
#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

using Counting = CountingCallBacks;
using Entries = std::vector<std::pair<const void*, const void*>>;

Owned<CFDictionaryRef> make(const Entries& entries,
                            const CFDictionaryKeyCallBacks* keys = &Counting::ofKeys,
                            const CFDictionaryValueCallBacks* values = &Counting::ofValues) {
    std::vector<const void*> allKeys;
    std::vector<const void*> allValues;
    for (const auto& [key, value] : entries) {
        allKeys.push_back(key);
        allValues.push_back(value);
    }
    return own(CFDictionaryCreate(kCFAllocatorDefault, allKeys.data(), allValues.data(),
                                  static_cast<CFIndex>(entries.size()), keys, values));
}

class CFDictionary : public testing::Test {
  protected:
    CFDictionary() { Counting::reset(); }

    static Owned<CFMutableDictionaryRef> makeMutable() {
        return own(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &Counting::ofKeys,
                                             &Counting::ofValues));
    }

    const int one = 1;
    const int alsoOne = 1;
    const int two = 2;
    const int ten = 10;
    const int alsoTen = 10;
    const int twenty = 20;
};

TEST_F(CFDictionary, FindsValuesByEqualKeys) {
    const auto dictionary = make({{&one, &ten}, {&two, &twenty}});
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 2);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &alsoOne), &ten);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &two), &twenty);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &ten), nullptr);
    EXPECT_NE(CFDictionaryContainsKey(dictionary.get(), &alsoOne), FALSE);
    EXPECT_EQ(CFDictionaryContainsKey(dictionary.get(), &ten), FALSE);
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
    const auto dictionary = make({{&one, &ten}, {&alsoOne, &twenty}});
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &one), &ten);
    const void* key = nullptr;
    CFDictionaryGetKeysAndValues(dictionary.get(), &key, nullptr);
    EXPECT_EQ(key, &one);
    EXPECT_EQ(Counting::held[&alsoOne], 0);
    EXPECT_EQ(Counting::held[&twenty], 0);
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

TEST_F(CFDictionary, NegativeCountIsRefused) {
    const void* values[] = {&one};
    EXPECT_EQ(CFDictionaryCreate(kCFAllocatorDefault, values, values, -1, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(CFDictionaryCreateMutable(kCFAllocatorDefault, -1, nullptr, nullptr), nullptr);
}

TEST_F(CFDictionary, NullKeysOrValuesWithACountAreRefused) {
    const void* values[] = {&one};
    EXPECT_EQ(CFDictionaryCreate(kCFAllocatorDefault, nullptr, values, 1, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(CFDictionaryCreate(kCFAllocatorDefault, values, nullptr, 1, nullptr, nullptr),
              nullptr);
}

TEST_F(CFDictionary, CopyOfTheCallBacksForObjectsWorksLikeTheConstants) {
    const CFDictionaryKeyCallBacks keys = kCFTypeDictionaryKeyCallBacks;
    const CFDictionaryValueCallBacks values = kCFTypeDictionaryValueCallBacks;
    const auto dictionary = make({{CFSTR("key"), CFSTR("value")}}, &keys, &values);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), makeString("key").get()), CFSTR("value"));
    const auto same = makeDictionary();
    CFDictionarySetValue(same.get(), makeString("key").get(), makeString("value").get());
    EXPECT_TRUE(equal(dictionary.get(), same.get()));
    EXPECT_TRUE(writeDocument(dictionary.get()));
}

TEST_F(CFDictionary, KeysMayBeObjectsWhileValuesAreNot) {
    const auto key = makeString("a key of some length");
    {
        const auto dictionary =
            make({{key.get(), &ten}}, &kCFTypeDictionaryKeyCallBacks, &Counting::ofValues);
        EXPECT_EQ(CFGetRetainCount(key.get()), 2);
        EXPECT_EQ(Counting::held[&ten], 1);
        EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), makeString("a key of some length").get()),
                  &ten);
        const auto alike =
            make({{key.get(), &alsoTen}}, &kCFTypeDictionaryKeyCallBacks, &Counting::ofValues);
        EXPECT_TRUE(equal(dictionary.get(), alike.get()));
        EXPECT_TRUE(own(CFCopyDescription(dictionary.get())));
        EXPECT_FALSE(writeDocument(dictionary.get()));
    }
    EXPECT_EQ(CFGetRetainCount(key.get()), 1);
    EXPECT_EQ(Counting::heldInAll(), 0);
}

TEST_F(CFDictionary, ValuesMayBeObjectsWhileKeysAreNot) {
    const auto value = makeString("a value of some length");
    {
        const auto dictionary =
            make({{&one, value.get()}}, &Counting::ofKeys, &kCFTypeDictionaryValueCallBacks);
        EXPECT_EQ(CFGetRetainCount(value.get()), 2);
        EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &alsoOne), value.get());
        const auto same = makeString("a value of some length");
        EXPECT_TRUE(equal(dictionary.get(), make({{&alsoOne, same.get()}}, &Counting::ofKeys,
                                                 &kCFTypeDictionaryValueCallBacks)
                                                .get()));
        EXPECT_FALSE(writeDocument(dictionary.get()));
    }
    EXPECT_EQ(CFGetRetainCount(value.get()), 1);
    EXPECT_EQ(Counting::heldInAll(), 0);
}

TEST_F(CFDictionary, OfObjectsNeverEqualsOneOfPointers) {
    const Entries entries = {{CFSTR("key"), CFSTR("value")}};
    const auto* const keys = &kCFTypeDictionaryKeyCallBacks;
    const auto* const values = &kCFTypeDictionaryValueCallBacks;
    const auto ofObjects = make(entries, keys, values);
    for (const auto& other : {make(entries, nullptr, values), make(entries, keys, nullptr),
                              make(entries, nullptr, nullptr)}) {
        EXPECT_FALSE(equal(ofObjects.get(), other.get()));
        EXPECT_FALSE(equal(other.get(), ofObjects.get()));
    }
}

// One of the callbacks for objects is missing. The dictionary calls the others and nothing else.
TEST_F(CFDictionary, OneOfTheCallBacksForObjectsMayBeMissing) {
    CFDictionaryKeyCallBacks keys[] = {kCFTypeDictionaryKeyCallBacks, kCFTypeDictionaryKeyCallBacks,
                                       kCFTypeDictionaryKeyCallBacks};
    keys[0].release = nullptr;
    keys[1].equal = nullptr;
    keys[2].hash = nullptr;
    CFDictionaryValueCallBacks values[] = {kCFTypeDictionaryValueCallBacks,
                                           kCFTypeDictionaryValueCallBacks};
    values[0].release = nullptr;
    values[1].equal = nullptr;
    const auto key = makeString("a key of some length");
    const auto value = makeString("a value of some length");
    const auto sameKey = makeString("a key of some length");
    const auto sameValue = makeString("a value of some length");
    const auto* const objects = &kCFTypeDictionaryValueCallBacks;

    make({{key.get(), value.get()}}, &keys[0], objects);
    EXPECT_EQ(CFGetRetainCount(key.get()), 2);
    own(key.get());
    make({{key.get(), value.get()}}, &kCFTypeDictionaryKeyCallBacks, &values[0]);
    EXPECT_EQ(CFGetRetainCount(value.get()), 2);
    own(value.get());

    const auto byAddress = make({{key.get(), value.get()}}, &keys[1], objects);
    EXPECT_EQ(CFDictionaryGetValue(byAddress.get(), key.get()), value.get());
    EXPECT_EQ(CFDictionaryGetValue(byAddress.get(), sameKey.get()), nullptr);
    const auto hashedByAddress = make({{key.get(), value.get()}}, &keys[2], objects);
    EXPECT_EQ(CFDictionaryGetValue(hashedByAddress.get(), key.get()), value.get());
    const auto comparedByAddress =
        make({{key.get(), value.get()}}, &kCFTypeDictionaryKeyCallBacks, &values[1]);
    EXPECT_TRUE(
        equal(comparedByAddress.get(),
              make({{key.get(), value.get()}}, &kCFTypeDictionaryKeyCallBacks, &values[1]).get()));
    EXPECT_FALSE(equal(
        comparedByAddress.get(),
        make({{key.get(), sameValue.get()}}, &kCFTypeDictionaryKeyCallBacks, &values[1]).get()));
}

TEST_F(CFDictionary, ManyKeysWithoutCallBacksAreFoundByAddress) {
    const auto dictionary =
        own(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, nullptr, nullptr));
    const std::vector<int> numbers(1000, 7);
    for (const int& number : numbers) {
        CFDictionarySetValue(dictionary.get(), &number, &number);
    }
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1000);
    for (const int& number : numbers) {
        EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &number), &number);
    }
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &one), nullptr);
}

TEST_F(CFDictionary, RetainsKeysAndValuesUntilItIsDestroyed) {
    {
        const auto dictionary = make({{&one, &ten}, {&two, &ten}});
        EXPECT_EQ(Counting::held[&one], 1);
        EXPECT_EQ(Counting::held[&two], 1);
        EXPECT_EQ(Counting::held[&ten], 2);
    }
    EXPECT_EQ(Counting::held[&one], 0);
    EXPECT_EQ(Counting::held[&ten], 0);
}

TEST_F(CFDictionary, AddingKeepsTheValueOfAnExistingKey) {
    const auto dictionary = makeMutable();
    CFDictionaryAddValue(dictionary.get(), &one, &ten);
    CFDictionaryAddValue(dictionary.get(), &alsoOne, &twenty);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &one), &ten);
    EXPECT_EQ(Counting::held[&one], 1);
    EXPECT_EQ(Counting::held[&ten], 1);
    EXPECT_EQ(Counting::held[&alsoOne], 0);
    EXPECT_EQ(Counting::held[&twenty], 0);
}

TEST_F(CFDictionary, SettingReplacesTheValueAndKeepsTheKey) {
    const auto dictionary = makeMutable();
    CFDictionarySetValue(dictionary.get(), &one, &ten);
    CFDictionarySetValue(dictionary.get(), &alsoOne, &twenty);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &one), &twenty);
    EXPECT_EQ(Counting::held[&one], 1);
    EXPECT_EQ(Counting::held[&ten], 0);
    EXPECT_EQ(Counting::held[&alsoOne], 0);
    EXPECT_EQ(Counting::held[&twenty], 1);
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
    const auto dictionary = makeMutable();
    CFDictionarySetValue(dictionary.get(), &one, &ten);
    CFDictionarySetValue(dictionary.get(), &two, &twenty);
    CFDictionaryRemoveValue(dictionary.get(), &alsoOne);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryContainsKey(dictionary.get(), &one), FALSE);
    EXPECT_NE(CFDictionaryContainsKey(dictionary.get(), &two), FALSE);
    EXPECT_EQ(Counting::held[&one], 0);
    EXPECT_EQ(Counting::held[&ten], 0);
    CFDictionaryRemoveValue(dictionary.get(), &one);
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
    const auto dictionary = makeMutable();
    for (int round = 0; round < 3; ++round) {
        CFDictionarySetValue(dictionary.get(), &one, &ten);
        CFDictionarySetValue(dictionary.get(), &two, &twenty);
        CFDictionaryRemoveAllValues(dictionary.get());
        EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 0);
        EXPECT_EQ(CFDictionaryContainsKey(dictionary.get(), &one), FALSE);
        EXPECT_EQ(Counting::heldInAll(), 0);
    }
    CFDictionarySetValue(dictionary.get(), &one, &ten);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &one), &ten);
}

TEST_F(CFDictionary, StoredNullDiffersFromAMissingKey) {
    const auto dictionary =
        own(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &Counting::ofKeys, nullptr));
    CFDictionarySetValue(dictionary.get(), &one, nullptr);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &one), nullptr);
    const void* value = &twenty;
    EXPECT_NE(CFDictionaryGetValueIfPresent(dictionary.get(), &alsoOne, &value), FALSE);
    EXPECT_EQ(value, nullptr);
    value = &twenty;
    EXPECT_EQ(CFDictionaryGetValueIfPresent(dictionary.get(), &two, &value), FALSE);
    EXPECT_EQ(value, &twenty);
    EXPECT_NE(CFDictionaryGetValueIfPresent(dictionary.get(), &one, nullptr), FALSE);
    EXPECT_EQ(CFDictionaryGetValueIfPresent(dictionary.get(), &two, nullptr), FALSE);
}

TEST_F(CFDictionary, WithoutCallBacksComparesPointers) {
    for (const bool isGiven : {false, true}) {
        const CFDictionaryKeyCallBacks noneOfKeys{};
        const CFDictionaryValueCallBacks noneOfValues{};
        const auto* const keys = isGiven ? &noneOfKeys : nullptr;
        const auto* const values = isGiven ? &noneOfValues : nullptr;
        const auto dictionary = make({{&one, &ten}, {&alsoOne, &twenty}}, keys, values);
        EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 2);
        EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &one), &ten);
        EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &alsoOne), &twenty);
        EXPECT_TRUE(
            equal(dictionary.get(), make({{&alsoOne, &twenty}, {&one, &ten}}, keys, values).get()));
        EXPECT_FALSE(equal(dictionary.get(),
                           make({{&one, &alsoTen}, {&alsoOne, &twenty}}, keys, values).get()));
        EXPECT_TRUE(own(CFCopyDescription(dictionary.get())));
    }
    EXPECT_EQ(Counting::heldInAll(), 0);
}

TEST_F(CFDictionary, CopiesTheCallBacks) {
    CFDictionaryKeyCallBacks keys = Counting::ofKeys;
    CFDictionaryValueCallBacks values = Counting::ofValues;
    const auto dictionary = own(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &keys, &values));
    keys = {};
    values = {};
    CFDictionarySetValue(dictionary.get(), &one, &ten);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &alsoOne), &ten);
    EXPECT_EQ(Counting::held[&ten], 1);
}

TEST_F(CFDictionary, EqualsOneWithEqualEntriesInAnyOrder) {
    const auto dictionary = make({{&one, &ten}, {&two, &twenty}});
    EXPECT_TRUE(equal(dictionary.get(), make({{&two, &twenty}, {&alsoOne, &alsoTen}}).get()));
    EXPECT_EQ(CFHash(dictionary.get()),
              CFHash(make({{&two, &twenty}, {&alsoOne, &alsoTen}}).get()));
    EXPECT_FALSE(equal(dictionary.get(), make({{&one, &twenty}, {&two, &ten}}).get()));
    EXPECT_FALSE(equal(make({{&one, &ten}}).get(), make({{&one, &twenty}}).get()));
    EXPECT_FALSE(equal(make({{&one, &ten}}).get(), make({{&two, &ten}}).get()));
    EXPECT_FALSE(equal(dictionary.get(), make({{&one, &ten}}).get()));
    EXPECT_FALSE(equal(dictionary.get(), make({{&one, &ten}, {&twenty, &twenty}}).get()));
}

TEST_F(CFDictionary, CannotBeChangedIfImmutable) {
    const auto dictionary = make({{&one, &ten}});
    auto* const asMutable = const_cast<CFMutableDictionaryRef>(dictionary.get());
    CFDictionaryAddValue(asMutable, &two, &twenty);
    CFDictionarySetValue(asMutable, &one, &twenty);
    CFDictionarySetValue(asMutable, &two, &twenty);
    CFDictionaryRemoveValue(asMutable, &one);
    CFDictionaryRemoveAllValues(asMutable);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &one), &ten);
    EXPECT_EQ(Counting::held[&two], 0);
    EXPECT_EQ(Counting::held[&twenty], 0);
}

TEST_F(CFDictionary, KeysAndValuesAreInTheSameOrder) {
    const auto dictionary = makeMutable();
    std::vector<int> numbers(100);
    for (int index = 0; index < 100; ++index) {
        int& number = numbers[static_cast<std::size_t>(index)];
        number = index;
        CFDictionarySetValue(dictionary.get(), &number, &number);
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
    const auto dictionary = make({{&one, &ten}, {&two, &twenty}});
    std::map<const void*, const void*> seen;
    CFDictionaryApplyFunction(
        dictionary.get(),
        [](const void* key, const void* value, void* context) {
            static_cast<std::map<const void*, const void*>*>(context)->emplace(key, value);
        },
        &seen);
    EXPECT_EQ(seen, (std::map<const void*, const void*>{{&one, &ten}, {&two, &twenty}}));
}

TEST_F(CFDictionary, FindsKeysWithTheSameHash) {
    CFDictionaryKeyCallBacks keys = Counting::ofKeys;
    keys.hash = [](const void*) { return CFHashCode(7); };
    const auto dictionary = own(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &keys, nullptr));
    std::vector<int> numbers(500);
    for (int index = 0; index < 500; ++index) {
        numbers[static_cast<std::size_t>(index)] = index;
    }
    for (const int& number : numbers) {
        CFDictionarySetValue(dictionary.get(), &number, &number);
    }
    for (std::size_t index = 0; index < numbers.size(); index += 2) {
        CFDictionaryRemoveValue(dictionary.get(), &numbers[index]);
    }
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 250);
    for (std::size_t index = 0; index < numbers.size(); ++index) {
        EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &numbers[index]),
                  index % 2 == 0 ? nullptr : &numbers[index]);
    }
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
