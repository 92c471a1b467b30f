// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

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

Owned<CFDictionaryRef> dictionaryOf(const Entries& entries) {
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
    const auto dictionary = dictionaryOf({{one.get(), ten.get()}, {two.get(), twenty.get()}});
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
    const auto dictionary = dictionaryOf({{one.get(), ten.get()}, {alsoOne.get(), twenty.get()}});
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

// A host may use the callbacks with containers of its own.
TEST_F(CFDictionary, CallBacksForObjectsRetainAndRelease) {
    const auto string = makeString("text");
    EXPECT_EQ(kCFTypeDictionaryKeyCallBacks.retain(kCFAllocatorDefault, string.get()),
              string.get());
    EXPECT_EQ(kCFTypeDictionaryValueCallBacks.retain(kCFAllocatorDefault, string.get()),
              string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 3);
    kCFTypeDictionaryKeyCallBacks.release(kCFAllocatorDefault, string.get());
    kCFTypeDictionaryValueCallBacks.release(kCFAllocatorDefault, string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
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
    const auto ofObjects = dictionaryOf({{one.get(), ten.get()}});
    EXPECT_TRUE(equal(ofObjects.get(), create(keys, values).get()));
    for (const auto& other :
         {create(nullptr, values), create(keys, nullptr), create(nullptr, nullptr)}) {
        EXPECT_FALSE(equal(ofObjects.get(), other.get()));
        EXPECT_FALSE(equal(other.get(), ofObjects.get()));
        EXPECT_FALSE(writeDocument(other.get()));
    }
}

TEST_F(CFDictionary, ValueIsGivenOnlyIfTheKeyIsPresent) {
    const auto dictionary = dictionaryOf({{one.get(), ten.get()}});
    const void* value = twenty.get();
    EXPECT_EQ(CFDictionaryGetValueIfPresent(dictionary.get(), two.get(), &value), FALSE);
    EXPECT_EQ(value, twenty.get());
    EXPECT_NE(CFDictionaryGetValueIfPresent(dictionary.get(), alsoOne.get(), &value), FALSE);
    EXPECT_EQ(value, ten.get());
    EXPECT_NE(CFDictionaryGetValueIfPresent(dictionary.get(), one.get(), nullptr), FALSE);
    EXPECT_EQ(CFDictionaryGetValueIfPresent(dictionary.get(), two.get(), nullptr), FALSE);
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

// The key to remove may be the one that the dictionary holds.
TEST_F(CFDictionary, RemovingByItsOwnKeyIsSafe) {
    const auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), makeString("the only key").get(), kCFBooleanTrue);
    const void* key = nullptr;
    CFDictionaryGetKeysAndValues(dictionary.get(), &key, nullptr);
    CFDictionaryRemoveValue(dictionary.get(), key);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 0);
}

TEST_F(CFDictionary, EqualsOneWithEqualEntriesInAnyOrder) {
    const auto dictionary = dictionaryOf({{one.get(), ten.get()}, {two.get(), twenty.get()}});
    EXPECT_TRUE(
        equal(dictionary.get(),
              dictionaryOf({{two.get(), twenty.get()}, {alsoOne.get(), alsoTen.get()}}).get()));
    EXPECT_EQ(
        CFHash(dictionary.get()),
        CFHash(dictionaryOf({{two.get(), twenty.get()}, {alsoOne.get(), alsoTen.get()}}).get()));
    EXPECT_FALSE(equal(dictionary.get(),
                       dictionaryOf({{one.get(), twenty.get()}, {two.get(), ten.get()}}).get()));
    EXPECT_FALSE(equal(dictionaryOf({{one.get(), ten.get()}}).get(),
                       dictionaryOf({{one.get(), twenty.get()}}).get()));
    EXPECT_FALSE(equal(dictionaryOf({{one.get(), ten.get()}}).get(),
                       dictionaryOf({{two.get(), ten.get()}}).get()));
    EXPECT_FALSE(equal(dictionary.get(), dictionaryOf({{one.get(), ten.get()}}).get()));
    EXPECT_FALSE(equal(dictionary.get(),
                       dictionaryOf({{one.get(), ten.get()}, {twenty.get(), twenty.get()}}).get()));
}

TEST_F(CFDictionary, CannotBeChangedIfImmutable) {
    const auto dictionary = dictionaryOf({{one.get(), ten.get()}});
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

TEST_F(CFDictionary, FunctionIsAppliedToEveryEntry) {
    const auto dictionary = dictionaryOf({{one.get(), ten.get()}, {two.get(), twenty.get()}});
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

// Returns each of the texts "0", "1" and so on in two objects, whose references are counted.
std::vector<Owned<CFStringRef>> twoOfEach(int count) {
    std::vector<Owned<CFStringRef>> objects;
    objects.reserve(2 * static_cast<std::size_t>(count));
    for (int number = 0; number < 2 * count; ++number) {
        objects.push_back(makeString(std::to_string(number / 2)));
    }
    return objects;
}

// Applies random operations to a dictionary and to a map, which knows the objects that the
// dictionary must hold. The keys are few, so many of them exist already.
void walk(unsigned seed, int keyCount, int steps) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto oneOf = [&random](const std::vector<Owned<CFStringRef>>& objects) {
        return random() % objects.size();
    };
    const auto keys = twoOfEach(keyCount);
    const auto values = twoOfEach(10);
    auto dictionary = makeDictionary();
    std::map<std::size_t, std::pair<const void*, const void*>> model;
    for (int step = 0; step < steps; ++step) {
        const std::size_t index = oneOf(keys);
        const CFStringRef key = keys[index].get();
        const CFStringRef value = values[oneOf(values)].get();
        const unsigned operation = random() % 1000;
        if (operation < 300) {
            CFDictionaryAddValue(dictionary.get(), key, value);
            model.emplace(index / 2, std::pair(key, value));
        } else if (operation < 600) {
            CFDictionarySetValue(dictionary.get(), key, value);
            model.emplace(index / 2, std::pair(key, value)).first->second.second = value;
        } else if (operation < 998) {
            CFDictionaryRemoveValue(dictionary.get(), key);
            model.erase(index / 2);
        } else if (operation < 999) {
            CFDictionaryRemoveAllValues(dictionary.get());
            model.clear();
        }
        ASSERT_EQ(CFDictionaryGetCount(dictionary.get()), static_cast<CFIndex>(model.size()));
        const std::size_t other = oneOf(keys);
        const auto place = model.find(other / 2);
        ASSERT_EQ(CFDictionaryGetValue(dictionary.get(), keys[other].get()),
                  place == model.end() ? nullptr : place->second.second);
    }
    std::vector<const void*> heldKeys(model.size());
    std::vector<const void*> heldValues(model.size());
    CFDictionaryGetKeysAndValues(dictionary.get(), heldKeys.data(), nullptr);
    CFDictionaryGetKeysAndValues(dictionary.get(), nullptr, heldValues.data());
    std::map<const void*, CFIndex> references;
    std::set<std::pair<const void*, const void*>> expected;
    std::set<std::pair<const void*, const void*>> found;
    for (const auto& [text, entry] : model) {
        expected.insert(entry);
        ++references[entry.first];
        ++references[entry.second];
    }
    for (std::size_t entry = 0; entry < model.size(); ++entry) {
        found.emplace(heldKeys[entry], heldValues[entry]);
    }
    EXPECT_EQ(found, expected);
    for (const auto* const objects : {&keys, &values}) {
        for (const auto& object : *objects) {
            ASSERT_EQ(CFGetRetainCount(object.get()), 1 + references[object.get()]);
        }
    }
    dictionary = {};
    for (const auto* const objects : {&keys, &values}) {
        for (const auto& object : *objects) {
            ASSERT_EQ(CFGetRetainCount(object.get()), 1);
        }
    }
}

TEST_F(CFDictionary, BehavesLikeAMapThatRetains) {
    for (unsigned seed = 0; seed < 30; ++seed) {
        walk(seed, 1 + static_cast<int>(seed * seed), 3000);
    }
    walk(30, 100000, 300000);
}

}  // namespace
}  // namespace qv::tests
