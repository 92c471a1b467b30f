// SPDX-License-Identifier: Apache-2.0

// Lets each allocation of each function fail: only that allocation, or that one and all later ones.
// A function that creates an object returns null then, a container that cannot grow stays
// unchanged, and no memory leaks.

#include <gtest/gtest.h>
#include <iconv.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CoreFoundation/Tree.h"
#include "ObjectMemory.h"
#include "platform/CoreFoundation/Base64.h"
#include "platform/CoreFoundation/Documents.h"
#include "platform/CoreFoundation/Objects.h"
#include "support/FailingCalls.h"
#include "support/UsualOrReduced.h"

namespace qv::tests {
namespace {

// Lets the layer keep no blocks of destroyed objects. A kept block would neither let an allocation
// fail nor count as freed.
class NoBlocksAreKept : public testing::Environment {
  public:
    void SetUp() override { cf::keepFreedObjects(false); }
};

const testing::Environment* const noBlocksAreKept =
    testing::AddGlobalTestEnvironment(new NoBlocksAreKept);

using Order = void (*)(int count);
constexpr Order kOrders[] = {failMallocAfter, failEveryMallocAfter};

// Calls `action` with the first allocation failing, then with the second one, until no allocation
// fails. Calls `afterwards` with whether an allocation failed. Returns the number of allocations.
template <class Action, class Afterwards>
int failEachAllocation(Order order, Action action, Afterwards afterwards) {
    for (int count = 0;; ++count) {
        const long before = liveAllocations();
        order(count);
        action();
        const bool failed = mallocFailed();
        afterwards(failed);
        EXPECT_EQ(liveAllocations() - before, 0) << "memory leaks after allocation " << count;
        if (!failed) {
            return count;
        }
    }
}

// Lets each allocation of `create` fail, which returns an object or null. Passes each created
// object to `isRight`. Returns the number of allocations.
template <class Create, class IsRight>
int checkCreation(Create create, IsRight isRight) {
    // The first call creates the objects that are created once and kept.
    own<CFTypeRef>(create());
    int count = 0;
    for (const Order order : kOrders) {
        CFTypeRef object = nullptr;
        count = failEachAllocation(
            order, [&] { object = create(); },
            [&](bool failed) {
                EXPECT_TRUE(failed || object != nullptr);
                if (object == nullptr) {
                    return;
                }
                EXPECT_TRUE(isRight(object));
                failMallocAfter(0);
                CFTypeRef const ending = object;
                own(ending);
                EXPECT_FALSE(mallocFailed()) << "releasing takes memory";
            });
    }
    return count;
}

template <class Create>
int checkCreation(Create create) {
    const auto expected = own<CFTypeRef>(create());
    EXPECT_TRUE(expected);
    return checkCreation(create,
                         [&expected](CFTypeRef object) { return equal(object, expected.get()); });
}

// Lets each allocation of `create` fail, which must always return null.
template <class Create>
void checkRefusal(Create create) {
    for (const Order order : kOrders) {
        CFTypeRef object = nullptr;
        failEachAllocation(
            order, [&] { object = create(); }, [&](bool) { EXPECT_EQ(object, nullptr); });
    }
}

// Lets each allocation of `answer` fail, which must return `expected`, or false if one fails.
template <class Answer>
void checkAnswer(bool expected, Answer answer) {
    for (const Order order : kOrders) {
        bool given = false;
        failEachAllocation(
            order, [&] { given = answer(); },
            [&](bool failed) { EXPECT_TRUE(given == expected || (failed && !given)); });
    }
}

TEST(CoreFoundationMemoryShortage, StringIsCreatedOrNull) {
    for (const std::string text : {"a", "caf\u00e9", "\u4e2d\u6587", "", "a text of some length"}) {
        const auto* const bytes = reinterpret_cast<const UInt8*>(text.data());
        const auto size = static_cast<CFIndex>(text.size());
        checkCreation([&]() -> CFTypeRef {
            return CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(),
                                             kCFStringEncodingUTF8);
        });
        for (const CFStringEncoding encoding :
             {kCFStringEncodingUTF8, kCFStringEncodingASCII, kCFStringEncodingISOLatin1}) {
            checkCreation([&]() -> CFTypeRef {
                return CFStringCreateWithBytes(kCFAllocatorDefault, bytes, size, encoding, FALSE);
            });
        }
        const std::u16string units = unitsOf(makeString(text).get());
        checkCreation([&]() -> CFTypeRef {
            return CFStringCreateWithCharacters(kCFAllocatorDefault,
                                                reinterpret_cast<const UniChar*>(units.data()),
                                                static_cast<CFIndex>(units.size()));
        });
    }
}

TEST(CoreFoundationMemoryShortage, ConstantStringCanBeCreatedAfterAFailure) {
    for (int number = 0; number < 200; ++number) {
        const std::string text = "short of memory " + std::to_string(number);
        for (int count = 0;; ++count) {
            failMallocAfter(count);
            const CFStringRef string = __CFStringMakeConstantString(text.c_str());
            const bool failed = mallocFailed();
            EXPECT_TRUE(failed || string != nullptr);
            if (string != nullptr) {
                EXPECT_EQ(utf8Of(string), text);
                EXPECT_EQ(__CFStringMakeConstantString(text.c_str()), string);
                break;
            }
        }
    }
    EXPECT_EQ(utf8Of(__CFStringMakeConstantString("short of memory 0")), "short of memory 0");
}

TEST(CoreFoundationMemoryShortage, LeafIsCreatedOrNull) {
    const double real = 2.5;
    EXPECT_EQ(checkCreation([&]() -> CFTypeRef {
                  return CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &real);
              }),
              1);
    EXPECT_EQ(checkCreation([]() -> CFTypeRef { return CFDateCreate(kCFAllocatorDefault, 12.5); }),
              1);
    // A small number needs no memory.
    for (const SInt64 value : {SInt64(0), SInt64(-1), SInt64(1) << 40, SInt64(1) << 62}) {
        checkCreation([&]() -> CFTypeRef {
            return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value);
        });
    }
    const std::vector<UInt8> bytes(1000, 7);
    for (const CFIndex size : {0, 1, 1000}) {
        checkCreation(
            [&]() -> CFTypeRef { return CFDataCreate(kCFAllocatorDefault, bytes.data(), size); });
        checkCreation([&]() -> CFTypeRef {
            return CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, bytes.data(), size,
                                               kCFAllocatorNull);
        });
    }
}

TEST(CoreFoundationMemoryShortage, FailureLeavesTheBytesOfDataToTheCaller) {
    auto* const bytes = static_cast<UInt8*>(std::calloc(1, 100));
    failMallocAfter(0);
    CFDataRef const data =
        CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, bytes, 100, kCFAllocatorMalloc);
    EXPECT_TRUE(mallocFailed());
    EXPECT_EQ(data, nullptr);
    const long before = liveAllocations();
    std::free(bytes);
    EXPECT_EQ(liveAllocations(), before - 1);
}

TEST(CoreFoundationMemoryShortage, DataFreesOnlyBytesThatItTookOver) {
    const long before = liveAllocations();
    own(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, static_cast<UInt8*>(std::calloc(1, 100)),
                                    100, kCFAllocatorMalloc));
    EXPECT_EQ(liveAllocations(), before);
    auto* const bytes = static_cast<UInt8*>(std::calloc(1, 100));
    own(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, bytes, 100, kCFAllocatorNull));
    EXPECT_EQ(liveAllocations(), before + 1);
    std::free(bytes);
}

std::vector<Owned<CFStringRef>> manyStrings(int count) {
    std::vector<Owned<CFStringRef>> strings;
    strings.reserve(static_cast<std::size_t>(count));
    for (int index = 0; index < count; ++index) {
        strings.push_back(makeString("element " + std::to_string(index)));
    }
    return strings;
}

TEST(CoreFoundationMemoryShortage, ContainerIsCreatedOrNull) {
    for (const int count : {0, 1, 5, 100}) {
        const auto strings = manyStrings(count);
        std::vector<const void*> values;
        values.reserve(strings.size());
        for (const auto& string : strings) {
            values.push_back(string.get());
        }
        checkCreation([&]() -> CFTypeRef {
            return CFArrayCreate(kCFAllocatorDefault, values.data(), count, &kCFTypeArrayCallBacks);
        });
        checkCreation([&]() -> CFTypeRef {
            return CFDictionaryCreate(kCFAllocatorDefault, values.data(), values.data(), count,
                                      &kCFTypeDictionaryKeyCallBacks,
                                      &kCFTypeDictionaryValueCallBacks);
        });
        checkCreation([&]() -> CFTypeRef {
            return CFArrayCreateMutable(kCFAllocatorDefault, count, &kCFTypeArrayCallBacks);
        });
        checkCreation([&]() -> CFTypeRef {
            return CFDictionaryCreateMutable(kCFAllocatorDefault, count,
                                             &kCFTypeDictionaryKeyCallBacks,
                                             &kCFTypeDictionaryValueCallBacks);
        });
        for (const auto& string : strings) {
            EXPECT_EQ(CFGetRetainCount(string.get()), 1);
        }
    }
}

TEST(CoreFoundationMemoryShortage, ArrayThatCannotGrowStaysUnchanged) {
    constexpr int kCount = 300;
    const auto strings = manyStrings(kCount);
    for (const Order order : kOrders) {
        Owned<CFMutableArrayRef> array;
        const auto fill = [&] {
            array = makeArray();
            for (const auto& string : strings) {
                if (array) {
                    CFArrayAppendValue(array.get(), string.get());
                }
            }
        };
        const auto check = [&](bool failed) {
            const CFIndex count = array ? CFArrayGetCount(array.get()) : 0;
            EXPECT_TRUE(failed || count == kCount);
            // The strings that were appended are in order.
            CFIndex index = 0;
            for (const auto& string : strings) {
                const bool isThere =
                    index < count && CFArrayGetValueAtIndex(array.get(), index) == string.get();
                index += isThere ? 1 : 0;
                EXPECT_EQ(CFGetRetainCount(string.get()), isThere ? 2 : 1);
            }
            EXPECT_EQ(index, count);
            array = {};
        };
        EXPECT_GT(failEachAllocation(order, fill, check), 3);
    }
}

TEST(CoreFoundationMemoryShortage, DictionaryThatCannotGrowStaysUnchanged) {
    constexpr int kCount = 300;
    const auto strings = manyStrings(kCount);
    for (const auto put : {CFDictionaryAddValue, CFDictionarySetValue}) {
        for (const Order order : kOrders) {
            Owned<CFMutableDictionaryRef> dictionary;
            const auto fill = [&] {
                dictionary = makeDictionary();
                for (const auto& string : strings) {
                    if (dictionary) {
                        put(dictionary.get(), string.get(), string.get());
                    }
                }
            };
            const auto check = [&](bool failed) {
                CFIndex count = 0;
                for (const auto& string : strings) {
                    const void* const value =
                        dictionary ? CFDictionaryGetValue(dictionary.get(), string.get()) : nullptr;
                    EXPECT_TRUE(value == nullptr || value == string.get());
                    EXPECT_EQ(CFGetRetainCount(string.get()), value != nullptr ? 3 : 1);
                    count += value != nullptr ? 1 : 0;
                }
                EXPECT_EQ(count, dictionary ? CFDictionaryGetCount(dictionary.get()) : 0);
                EXPECT_TRUE(failed || count == kCount);
                dictionary = {};
            };
            EXPECT_GT(failEachAllocation(order, fill, check), 3);
        }
    }
}

TEST(CoreFoundationMemoryShortage, DictionaryAllocatesOnlyForNewKeys) {
    const auto strings = manyStrings(100);
    const auto dictionary = makeDictionary();
    for (const auto& string : strings) {
        CFDictionarySetValue(dictionary.get(), string.get(), string.get());
    }
    std::vector<const void*> keys(strings.size());
    failMallocAfter(0);
    for (const auto& string : strings) {
        CFDictionarySetValue(dictionary.get(), string.get(), kCFBooleanTrue);
        CFDictionaryAddValue(dictionary.get(), string.get(), kCFBooleanFalse);
        CFDictionaryContainsKey(dictionary.get(), string.get());
    }
    CFDictionaryGetKeysAndValues(dictionary.get(), keys.data(), nullptr);
    for (std::size_t index = 0; index < strings.size(); index += 2) {
        CFDictionaryRemoveValue(dictionary.get(), strings[index].get());
    }
    CFStringCompare(strings[0].get(), strings[1].get(), 0);
    CFHash(dictionary.get());
    EXPECT_FALSE(mallocFailed());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 50);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), strings[1].get()), kCFBooleanTrue);
    failMallocAfter(0);
    CFDictionaryRemoveAllValues(dictionary.get());
    EXPECT_FALSE(mallocFailed());
}

// Returns a document that is a string as a binary document, and the pairs bplist0 = "..."; as an
// old-style one. If memory runs out, the old-style reader must not read it.
std::string binaryAndOldStyle() {
    // The position of the offset table, which comes last, ends the quoted string and the pair.
    constexpr std::size_t kTable = ('"' << 8) + ';';
    std::string document = "bplist0=\"Qa";
    document.resize(kTable, 'x');
    document += bigEndian(9, 2);
    return document + BinaryTrailer{2, 1, 1, 0, kTable}.bytes();
}

// Returns a set with more members than it has room for at first. The members are strings, or arrays
// of different lengths.
std::string binarySet(bool ofArrays) {
    constexpr std::uint64_t kCount = 12;
    BinaryDocument document;
    std::string set = BinaryDocument::head(0xc0, kCount);
    for (std::uint64_t member = 1; member <= kCount; ++member) {
        set += bigEndian(member, 1);
    }
    document.add(set);
    for (std::uint64_t member = 1; member <= kCount; ++member) {
        if (ofArrays) {
            document.addArray(std::vector<std::uint64_t>(member, kCount + 1));
        } else {
            document.addString("member " + std::to_string(member));
        }
    }
    document.addString("element");
    return document.bytes();
}

// A document and its tree, which is null if the document is refused.
struct Document {
    std::string name;
    Owned<CFDataRef> data;
    Owned<> tree;
};

const std::vector<Document>& documents() {
    static const auto all = [] {
        std::vector<Document> documents;
        std::ifstream file(QV_TEST_DATA_DIR "/plist-cases.jsonl");
        for (std::string line; std::getline(file, line);) {
            const auto vector = nlohmann::json::parse(line);
            const std::string name = vector["name"];
            // These documents have many levels, as have a shorter one and a cycle of arrays.
            if (usualOrReduced(false, name == "deep-600" || name == "bin-cycle-dict")) {
                continue;
            }
            const std::string bytes = fromBase64(vector["input"].get<std::string>());
            documents.push_back({name, makeData(bytes), readDocument(bytes)});
        }
        const auto add = [&documents](const std::string& name, const std::string& bytes) {
            documents.push_back({name, makeData(bytes), readDocument(bytes)});
        };
        // These documents exceed the initial capacity of readers and containers. Each document is
        // read as often as it has elements.
        constexpr std::size_t kElements = usualOrReduced(500, 150);
        const std::string inXml = repeated("<integer>1</integer>", kElements);
        add("long array", "<array>" + inXml + "</array>");
        std::string entries;
        for (std::size_t key = 0; key < kElements; ++key) {
            entries += "<key>" + std::to_string(key) + "</key><true/>";
        }
        add("large dictionary", "<dict>" + entries + "</dict>");
        add("long string", "<string>" + repeated("&amp;\u4e2d", 5000) + "</string>");
        add("long data", "<data>" + repeated("AAAA", 5000) + "</data>");
        add("long old-style array", "(" + repeated("a,", kElements) + ")");
        add("long old-style string", "\"" + repeated("\\U4e2d", 3000) + "\"");
        // One of two equal keys counts, and the value of the other is released.
        add("equal keys",
            "<dict><key>key</key><string>first text</string><key>other</key><true/>"
            "<key>key</key><array><string>second text</string></array></dict>");
        add("equal old-style keys", "{ key = (first); other = b; key = \"second\"; }");
        BinaryDocument equalKeys;
        equalKeys.addDictionary({1, 1}, {2, 3});
        equalKeys.addString("key");
        equalKeys.addArray({1});
        equalKeys.addString("second text");
        add("equal binary keys", equalKeys.bytes());
        std::string pairs;
        for (int key = 0; key < 100; ++key) {
            pairs += "key" + std::to_string(key) + "=value;";
        }
        add("large old-style dictionary", "{" + pairs + "}");
        add("large set of strings", binarySet(false));
        add("large set of arrays", binarySet(true));
        // The characters behind a lone surrogate are not written, up to the escaped character.
        BinaryDocument loneSurrogates;
        loneSurrogates.add(BinaryDocument::head(0x60, 2000) +
                           repeated(std::string("\0a\0<\0b\xd8\x00", 8), 500));
        add("lone surrogates", loneSurrogates.bytes());
        add("binary and old-style", binaryAndOldStyle());
        constexpr std::size_t kDepth = usualOrReduced(400, 150);
        add("deep", kNestedXml[2].whole(kDepth));
        add("deep old-style", kNestedOldStyle[2].whole(kDepth));
        add("deep binary", kNestedBinary[1].whole(kDepth));
        return documents;
    }();
    return all;
}

// Holds converters for the encodings of the documents open. So the memory that the C library keeps
// for them does not count as a leak.
class OpenConverters {
  public:
    OpenConverters() {
        for (const char* const name :
             {"SHIFT_JIS", "SHIFT-JIS", "CP932", "GBK", "BIG5", "KOI8-R", "WINDOWS-1252",
              "ISO-8859-1", "US-ASCII", "UTF-16", "UTF-32"}) {
            for (const char* const to : {"UTF-8", "UTF-16LE"}) {
                void* const converter = ::iconv_open(to, name);
                if (reinterpret_cast<std::intptr_t>(converter) != -1) {
                    converters_.push_back(converter);
                }
            }
        }
    }
    ~OpenConverters() {
        for (void* const converter : converters_) {
            ::iconv_close(converter);
        }
    }
    OpenConverters(const OpenConverters&) = delete;
    OpenConverters& operator=(const OpenConverters&) = delete;

  private:
    std::vector<iconv_t> converters_;
};

class CoreFoundationMemoryShortageOfDocuments : public testing::Test {
  protected:
    CoreFoundationMemoryShortageOfDocuments() { documents(); }

    // Calls `use` with each document that is not refused.
    static void forEachTree(const std::function<void(const Document&)>& use) {
        for (const Document& document : documents()) {
            SCOPED_TRACE(document.name);
            if (document.tree) {
                use(document);
            }
        }
    }

    const OpenConverters converters;
};

TEST_F(CoreFoundationMemoryShortageOfDocuments, TreeIsReadOrNull) {
    for (const Document& document : documents()) {
        SCOPED_TRACE(document.name);
        const fuzz::Tree tree = document.tree ? fuzz::treeOf(document.tree.get()) : fuzz::Tree();
        const auto isRight = [&](CFTypeRef object) {
            return document.tree && fuzz::treeOf(object) == tree;
        };
        // A shortage gives no reason. For the encodings of the C library, the C library does not
        // say that memory ran out, and the reason is that the encoding is unknown.
        const bool mayHaveReason = !document.tree || document.name.rfind("enc-", 0) == 0;
        const CFOptionFlags options[] = {kCFPropertyListImmutable,
                                         kCFPropertyListMutableContainers};
        for (const CFOptionFlags option : options) {
            const auto read = [&]() -> CFTypeRef {
                return CFPropertyListCreateFromXMLData(kCFAllocatorDefault, document.data.get(),
                                                       option, nullptr);
            };
            const auto readWithReason = [&]() -> CFTypeRef {
                CFStringRef given = nullptr;
                const CFTypeRef object = CFPropertyListCreateFromXMLData(
                    kCFAllocatorDefault, document.data.get(), option, &given);
                EXPECT_TRUE(given == nullptr || (object == nullptr && mayHaveReason));
                own(given);
                return object;
            };
            const auto readWithError = [&]() -> CFTypeRef {
                CFErrorRef given = nullptr;
                const CFTypeRef object = CFPropertyListCreateWithData(
                    kCFAllocatorDefault, document.data.get(), option, nullptr, &given);
                EXPECT_TRUE(given == nullptr || (object == nullptr && mayHaveReason));
                own(given);
                return object;
            };
            for (const std::function<CFTypeRef()>& create :
                 {std::function<CFTypeRef()>(read), std::function<CFTypeRef()>(readWithReason),
                  std::function<CFTypeRef()>(readWithError)}) {
                if (document.tree) {
                    checkCreation(create, isRight);
                } else {
                    checkRefusal(create);
                }
            }
        }
    }
}

TEST_F(CoreFoundationMemoryShortageOfDocuments, DocumentIsWrittenOrNull) {
    forEachTree([](const Document& document) {
        const auto write = [&]() -> CFTypeRef {
            return CFPropertyListCreateXMLData(kCFAllocatorDefault, document.tree.get());
        };
        const auto writeWithError = [&]() -> CFTypeRef {
            CFErrorRef given = nullptr;
            const CFTypeRef data = CFPropertyListCreateData(
                kCFAllocatorDefault, document.tree.get(), kCFPropertyListXMLFormat_v1_0, 0, &given);
            EXPECT_TRUE(data == nullptr || given == nullptr);
            own(given);
            return data;
        };
        if (own<CFTypeRef>(write())) {
            checkCreation(write);
            checkCreation(writeWithError);
        } else {
            checkRefusal(writeWithError);
        }
    });
}

TEST_F(CoreFoundationMemoryShortageOfDocuments, DescriptionIsCreatedOrNull) {
    forEachTree([](const Document& document) {
        checkCreation([&]() -> CFTypeRef { return CFCopyDescription(document.tree.get()); });
    });
}

TEST_F(CoreFoundationMemoryShortageOfDocuments, TreesAreEqualOrCountAsDifferent) {
    forEachTree([](const Document& document) {
        if (document.name.find("nan") == std::string::npos) {
            const auto same = own(CFPropertyListCreateFromXMLData(
                kCFAllocatorDefault, document.data.get(), kCFPropertyListImmutable, nullptr));
            checkAnswer(true, [&] { return equal(document.tree.get(), same.get()); });
        }
    });
}

}  // namespace
}  // namespace qv::tests
