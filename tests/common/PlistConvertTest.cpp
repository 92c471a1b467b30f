// SPDX-License-Identifier: Apache-2.0

// Tests the conversion of messages to property-list values and back.

#include "QvPlistConvert.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/CoreFoundation/Objects.h"
#include "support/RecordedCalls.h"

namespace qv::tests {
namespace {

using google::protobuf::RepeatedPtrField;
using qor::kevra::CFArrayTypeInfo;
using qor::kevra::convert;
using qor::kevra::convertCreate;
using qor::kevra::Int32TypeInfo;
using qor::kevra::ServiceInfo;
using qor::kevra::TypeInfo;

// The type is read before main(), because code that runs while a library is loaded uses the traits.
const CFTypeID messageTypeAtStart = TypeInfo<ServiceInfo>::CF_TYPE_ID;

void put(const Owned<CFMutableDictionaryRef>& dictionary, const char* key, CFTypeRef value) {
    CFDictionarySetValue(dictionary.get(), makeString(key).get(), value);
}

CFTypeRef at(CFDictionaryRef dictionary, const char* key) {
    return CFDictionaryGetValue(dictionary, makeString(key).get());
}

Owned<CFMutableDictionaryRef> dictionaryOf(const char* key, CFTypeRef value) {
    auto dictionary = makeDictionary();
    put(dictionary, key, value);
    return dictionary;
}

Owned<CFMutableArrayRef> arrayOf(const std::vector<CFTypeRef>& values) {
    auto array = makeArray();
    for (CFTypeRef const value : values) {
        CFArrayAppendValue(array.get(), value);
    }
    return array;
}

ServiceInfo makeService(int id, const std::string& address) {
    ServiceInfo service;
    service.set_id(id);
    service.set_address(address);
    return service;
}

RepeatedPtrField<ServiceInfo> makeServices(const std::vector<std::string>& addresses) {
    RepeatedPtrField<ServiceInfo> services;
    int id = 0;
    for (const std::string& address : addresses) {
        *services.Add() = makeService(++id, address);
    }
    return services;
}

// Returns each service as text: "1 a", with "-" for an absent field.
std::vector<std::string> textsOf(const RepeatedPtrField<ServiceInfo>& services) {
    std::vector<std::string> texts;
    for (const ServiceInfo& service : services) {
        texts.push_back((service.has_id() ? std::to_string(service.id()) : "-") + " " +
                        (service.has_address() ? service.address() : "-"));
    }
    return texts;
}

using testing::ElementsAre;
using testing::IsEmpty;

using CallList = std::vector<std::string>;

// Returns the calls that an action makes when the first call of a kind fails.
template <class Action>
CallList callsWhenFails(const std::string& failing, Action action) {
    return callsDuring(action, {failing, 0, 0});
}

CallList first(std::size_t count, const CallList& calls) {
    return {calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(count)};
}

const CallList kStoring{"CFStringCreateWithCString(id, UTF-8)", "CFNumberCreate(3)",
                        "CFStringCreateWithCString(address, UTF-8)",
                        "CFStringCreateWithCString(a, UTF-8)"};

TEST(TypeTraits, NameTheKindThatIsStored) {
    static_assert(std::is_same_v<decltype(Int32TypeInfo::CF_NUM_TYPE), const long>);
    static_assert(Int32TypeInfo::CF_NUM_TYPE == 3);
    static_assert(
        std::is_same_v<Int32TypeInfo, qor::kevra::CFNumberTypeInfo<int, kCFNumberSInt32Type>>);
    EXPECT_EQ(Int32TypeInfo::CF_TYPE_ID, CFNumberGetTypeID());
    EXPECT_EQ(TypeInfo<ServiceInfo>::CF_TYPE_ID, CFDictionaryGetTypeID());
    EXPECT_EQ(TypeInfo<std::string>::GET_CF_TYPE_ID(), CFStringGetTypeID());
    EXPECT_EQ(CFArrayTypeInfo::CF_TYPE_ID, CFArrayGetTypeID());
}

TEST(TypeTraits, AreReadyBeforeMain) {
    EXPECT_EQ(messageTypeAtStart, CFDictionaryGetTypeID());
}

TEST(MessageToDictionary, StoresEachFieldUnderItsName) {
    const auto dictionary = makeDictionary();
    EXPECT_TRUE(convert(makeService(-5, "caf\u00e9 \U0001F600"), dictionary.get()));
    const auto expected = dictionaryOf("id", makeInteger(-5).get());
    put(expected, "address", makeString("caf\u00e9 \U0001F600").get());
    EXPECT_TRUE(equal(dictionary.get(), expected.get()));
}

TEST(MessageToDictionary, AbsentFieldsStayAbsent) {
    const auto dictionary = makeDictionary();
    EXPECT_TRUE(convert(ServiceInfo(), dictionary.get()));
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 0);

    ServiceInfo onlyId;
    onlyId.set_id(0);
    EXPECT_TRUE(convert(onlyId, dictionary.get()));
    EXPECT_TRUE(equal(dictionary.get(), dictionaryOf("id", makeInteger(0).get()).get()));

    ServiceInfo onlyAddress;
    onlyAddress.set_address("");
    EXPECT_TRUE(convert(onlyAddress, dictionary.get()));
    EXPECT_TRUE(equal(dictionary.get(), dictionaryOf("address", makeString("").get()).get()));
}

TEST(MessageToDictionary, EarlierContentsAreRemoved) {
    const auto dictionary = dictionaryOf("other", kCFBooleanTrue);
    put(dictionary, "id", makeString("former").get());
    EXPECT_TRUE(convert(ServiceInfo(), dictionary.get()));
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 0);
}

TEST(MessageToDictionary, AddressThatIsNotUtf8LeavesTheIdentifier) {
    for (const char* const address : {"\xff", "a\xc3", "\xed\xa0\x80", "\xc0\x80", "a\x80z"}) {
        const auto dictionary = dictionaryOf("other", kCFBooleanTrue);
        EXPECT_FALSE(convert(makeService(7, address), dictionary.get()));
        EXPECT_TRUE(equal(dictionary.get(), dictionaryOf("id", makeInteger(7).get()).get()));
    }
}

TEST(MessageToDictionary, NullDictionaryIsRefused) {
    EXPECT_FALSE(convert(makeService(1, "a"), static_cast<CFMutableDictionaryRef>(nullptr)));
}

TEST(MessageToDictionary, StopsAtTheFirstCallThatFails) {
    const int entriesThen[] = {0, 0, 1, 1};
    for (std::size_t call = 0; call < kStoring.size(); ++call) {
        const auto dictionary = makeDictionary();
        const auto store = [&] { EXPECT_FALSE(convert(makeService(1, "a"), dictionary.get())); };
        EXPECT_EQ(callsWhenFails(kStoring[call], store), first(call + 1, kStoring));
        EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), entriesThen[call]);
    }
}

TEST(DictionaryToMessage, SetsBothFields) {
    const auto dictionary = dictionaryOf("id", makeInteger(INT32_MIN).get());
    put(dictionary, "address", makeString("\u4e2d").get());
    ServiceInfo service;
    EXPECT_TRUE(convert(dictionary.get(), service));
    EXPECT_EQ(service.id(), INT32_MIN);
    EXPECT_EQ(service.address(), "\u4e2d");
}

TEST(DictionaryToMessage, FieldsThatAreNotReadKeepTheirValues) {
    ServiceInfo service = makeService(5, "former");
    EXPECT_TRUE(convert(makeDictionary().get(), service));
    EXPECT_TRUE(convert(dictionaryOf("id", makeReal(0.5).get()).get(), service));
    const std::u16string loneSurrogate = u"a\xd800";
    EXPECT_TRUE(convert(dictionaryOf("address", makeString(loneSurrogate).get()).get(), service));
    EXPECT_EQ(service.id(), 5);
    EXPECT_EQ(service.address(), "former");
}

TEST(DictionaryToMessage, NullDictionaryIsRefused) {
    ServiceInfo service = makeService(5, "former");
    EXPECT_FALSE(convert(static_cast<CFDictionaryRef>(nullptr), service));
    EXPECT_EQ(service.id(), 5);
}

// Taking the field for an absent one would drop it from the file at the next save.
TEST(DictionaryToMessage, ThrowsWithoutMemoryForAKey) {
    const auto dictionary = dictionaryOf("id", makeInteger(1).get());
    ServiceInfo service;
    for (const std::string& key : {kStoring[0], kStoring[2]}) {
        EXPECT_EQ(
            callsWhenFails(
                key, [&] { EXPECT_THROW(convert(dictionary.get(), service), std::bad_alloc); })
                .back(),
            key);
    }
}

TEST(DictionaryToMessage, TextThatCouldNotBeReadIsReadAgain) {
    const auto dictionary = dictionaryOf("address", makeString("\u4e2d").get());
    ServiceInfo service;
    const std::string read = "CFStringGetCString(4, UTF-8)";
    const CallList calls =
        callsWhenFails(read, [&] { EXPECT_TRUE(convert(dictionary.get(), service)); });
    EXPECT_EQ(std::count(calls.begin(), calls.end(), read), 2);
    EXPECT_EQ(service.address(), "\u4e2d");
}

TEST(FieldToArray, KeepsTheOrder) {
    CFArrayRef array = nullptr;
    ASSERT_TRUE(convertCreate(makeServices({"c", "a", "b"}), array));
    const auto owner = own(array);
    ASSERT_EQ(CFArrayGetCount(array), 3);
    const char* const addresses[] = {"c", "a", "b"};
    for (CFIndex index = 0; index < 3; ++index) {
        const auto* const element =
            static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(array, index));
        EXPECT_TRUE(equal(at(element, "id"), makeInteger(index + 1).get()));
        EXPECT_TRUE(equal(at(element, "address"), makeString(addresses[index]).get()));
        EXPECT_EQ(CFGetRetainCount(element), 1);
    }
    EXPECT_EQ(CFGetRetainCount(array), 1);
}

TEST(FieldToArray, EmptyFieldIsAnEmptyArray) {
    CFArrayRef array = nullptr;
    ASSERT_TRUE(convertCreate(RepeatedPtrField<ServiceInfo>(), array));
    const auto owner = own(array);
    EXPECT_EQ(CFArrayGetCount(array), 0);
}

TEST(FieldToArray, OneAddressThatIsNotUtf8FailsTheWholeAndLeavesTheTarget) {
    for (const auto& addresses : std::vector<std::vector<std::string>>{
             {"\xff", "b", "c"}, {"a", "\xff", "c"}, {"a", "b", "\xff"}}) {
        const auto former = makeArray();
        CFArrayRef array = former.get();
        EXPECT_FALSE(convertCreate(makeServices(addresses), array));
        EXPECT_EQ(array, former.get());
        EXPECT_EQ(CFGetRetainCount(former.get()), 1);
    }
}

TEST(FieldToArray, StopsAtTheFirstCallThatFails) {
    CallList calls{"CFDictionaryCreateMutable()"};
    calls.insert(calls.end(), kStoring.begin(), kStoring.end());
    calls.emplace_back("CFArrayCreate(1)");
    const auto former = makeArray();
    for (std::size_t call = 0; call < calls.size(); ++call) {
        CFArrayRef array = former.get();
        const auto make = [&] { EXPECT_FALSE(convertCreate(makeServices({"a"}), array)); };
        EXPECT_EQ(callsWhenFails(calls[call], make), first(call + 1, calls));
        EXPECT_EQ(array, former.get());
    }
}

TEST(ArrayToField, ReplacesTheContents) {
    CFArrayRef array = nullptr;
    ASSERT_TRUE(convertCreate(makeServices({"x", "y"}), array));
    const auto owner = own(array);
    auto services = makeServices({"former", "f", "f"});
    EXPECT_TRUE(convert(array, services));
    EXPECT_THAT(textsOf(services), ElementsAre("1 x", "2 y"));
    EXPECT_EQ(CFGetRetainCount(array), 1);
}

TEST(ArrayToField, NullIsRefusedAndTheFieldIsLeftAlone) {
    auto services = makeServices({"former"});
    EXPECT_FALSE(convert(static_cast<CFArrayRef>(nullptr), services));
    EXPECT_THAT(textsOf(services), ElementsAre("1 former"));
}

TEST(ArrayToField, OneElementThatIsNoDictionaryEmptiesTheField) {
    const auto good = dictionaryOf("id", makeInteger(1).get());
    const auto string = makeString("a");
    for (const auto& values : {std::vector<CFTypeRef>{good.get(), good.get(), string.get()},
                               std::vector<CFTypeRef>{string.get(), good.get()}}) {
        auto services = makeServices({"former"});
        EXPECT_FALSE(convert(static_cast<CFArrayRef>(arrayOf(values).get()), services));
        EXPECT_THAT(services, IsEmpty());
    }
}

TEST(ArrayToField, NullElementEmptiesTheField) {
    const void* values[] = {nullptr};
    const auto array = own(CFArrayCreate(kCFAllocatorDefault, values, 1, nullptr));
    auto services = makeServices({"former"});
    EXPECT_FALSE(convert(array.get(), services));
    EXPECT_THAT(services, IsEmpty());
}

TEST(ArrayToField, ElementsAreReusedWithoutTheirFormerFields) {
    auto services = makeServices({"former", "former"});
    const ServiceInfo* const first = &services.Get(0);
    const auto onlyId = dictionaryOf("id", makeInteger(9).get());
    const auto empty = makeDictionary();
    EXPECT_TRUE(
        convert(static_cast<CFArrayRef>(arrayOf({onlyId.get(), empty.get()}).get()), services));
    EXPECT_EQ(&services.Get(0), first);
    EXPECT_THAT(textsOf(services), ElementsAre("9 -", "- -"));
}

TEST(KeyedArrayToField, ReadsTheArrayUnderTheKey) {
    const auto element = dictionaryOf("id", makeInteger(4).get());
    const auto dictionary = dictionaryOf("list", arrayOf({element.get()}).get());
    auto services = makeServices({"former", "f"});
    EXPECT_TRUE(convert(dictionary.get(), "list", services));
    EXPECT_THAT(textsOf(services), ElementsAre("4 -"));
}

TEST(KeyedArrayToField, WithoutAnArrayTheFieldIsLeftAlone) {
    auto services = makeServices({"former"});
    const auto dictionary = dictionaryOf("list", arrayOf({}).get());
    EXPECT_FALSE(convert(static_cast<CFDictionaryRef>(nullptr), "list", services));
    EXPECT_FALSE(convert(dictionary.get(), nullptr, services));
    EXPECT_FALSE(convert(dictionary.get(), "other", services));
    EXPECT_FALSE(convert(dictionary.get(), "\xff", services));
    EXPECT_FALSE(convert(dictionaryOf("list", dictionary.get()).get(), "list", services));
    EXPECT_THAT(textsOf(services), ElementsAre("1 former"));
}

TEST(KeyedArrayToField, WithoutAKeyNothingIsLookedUp) {
    auto services = makeServices({"former"});
    const auto dictionary = dictionaryOf("list", arrayOf({}).get());
    EXPECT_THAT(callsDuring([&] { EXPECT_FALSE(convert(dictionary.get(), nullptr, services)); }),
                IsEmpty());
    const std::string key = "CFStringCreateWithCString(list, UTF-8)";
    EXPECT_THAT(
        callsWhenFails(key, [&] { EXPECT_FALSE(convert(dictionary.get(), "list", services)); }),
        ElementsAre(key));
    EXPECT_THAT(textsOf(services), ElementsAre("1 former"));
}

TEST(StringToText, AsciiIsReadWithoutABuffer) {
    const auto string = makeString("plain");
    EXPECT_NE(CFStringGetCStringPtr(string.get(), kCFStringEncodingUTF8), nullptr);
    std::string text = "former";
    EXPECT_TRUE(convert(string.get(), text));
    EXPECT_EQ(text, "plain");
}

TEST(StringToText, OtherTextGoesThroughABuffer) {
    // A buffer has three bytes for each unit and one for the NUL. Some characters have two units.
    for (const std::string expected : {"\u4e2d", "\U0001F600", "\u00e9", "caf\u00e9", "\uffff",
                                       "a\u0080\u07ff\u0800\U0010ffff"}) {
        const auto string = makeString(expected);
        EXPECT_EQ(CFStringGetCStringPtr(string.get(), kCFStringEncodingUTF8), nullptr);
        std::string text = "former";
        EXPECT_TRUE(convert(string.get(), text));
        EXPECT_EQ(text, expected);
    }
    std::string longText;
    for (int round = 0; round < 10000; ++round) {
        longText += "\u4e2d";
    }
    std::string text;
    EXPECT_TRUE(convert(makeString(longText).get(), text));
    EXPECT_EQ(text, longText);
}

TEST(StringToText, BufferHasFourBytesForEachUnit) {
    std::string text;
    EXPECT_THAT(callsDuring([&] { EXPECT_TRUE(convert(makeString("\U0001F600").get(), text)); }),
                testing::Contains("CFStringGetCString(8, UTF-8)"));
}

TEST(StringToText, EmptyStringNeedsNoBuffer) {
    const auto string = makeString("");
    std::string text = "former";
    const std::string pointer = "CFStringGetCStringPtr(UTF-8)";
    EXPECT_THAT(callsWhenFails(pointer, [&] { EXPECT_TRUE(convert(string.get(), text)); }),
                ElementsAre(pointer));
    EXPECT_EQ(text, "");
}

TEST(StringToText, EndsAtTheFirstNul) {
    const std::u16string withNul[] = {{u'a', 0, u'b'}, {u'\u4e2d', 0, u'b'}, {0, u'\u4e2d'}};
    const char* const expected[] = {"a", "\u4e2d", ""};
    for (int index = 0; index < 3; ++index) {
        std::string text = "former";
        EXPECT_TRUE(convert(makeString(withNul[index]).get(), text));
        EXPECT_EQ(text, expected[index]);
    }
}

TEST(StringToText, NullAndLoneSurrogatesLeaveTheTargetAlone) {
    std::string text = "former";
    EXPECT_FALSE(convert(static_cast<CFStringRef>(nullptr), text));
    EXPECT_FALSE(convert(makeString(std::u16string(1, u'\xd800')).get(), text));
    EXPECT_FALSE(convert(makeString(std::u16string{u'\xdc00', u'a'}).get(), text));
    EXPECT_EQ(text, "former");
}

}  // namespace
}  // namespace qv::tests
