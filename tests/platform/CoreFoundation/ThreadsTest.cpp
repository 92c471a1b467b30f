// SPDX-License-Identifier: Apache-2.0

// Shows which operations are safe on several threads at once: retaining, releasing, creating, and
// reading an object that no thread changes. One of the builds runs with ThreadSanitizer.

#include <gtest/gtest.h>
#include <iconv.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/CoreFoundation/Documents.h"
#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

constexpr int kThreads = 8;

// Runs the action on all threads, which start together.
void onThreads(const std::function<void(int thread)>& action) {
    std::atomic<int> waiting{kThreads};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            --waiting;
            while (waiting != 0) {
                std::this_thread::yield();
            }
            action(thread);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Keeps the C library from unloading the converter of an encoding. The library unloads one that
// nobody uses, under a lock that ThreadSanitizer does not know.
class LoadedConverter {
  public:
    explicit LoadedConverter(const char* encoding) : converter_(::iconv_open("UTF-8", encoding)) {
        EXPECT_NE(reinterpret_cast<std::intptr_t>(converter_), -1) << encoding;
    }
    ~LoadedConverter() { ::iconv_close(converter_); }

    LoadedConverter(const LoadedConverter&) = delete;
    LoadedConverter& operator=(const LoadedConverter&) = delete;

  private:
    iconv_t converter_;
};

TEST(CoreFoundationThreads, ReferencesAreCounted) {
    const auto string = makeString("a string that all share");
    onThreads([&string](int) {
        for (int round = 0; round < 10000; ++round) {
            CFRetain(string.get());
            own(string.get());
        }
    });
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
}

TEST(CoreFoundationThreads, LastReleaseDestroysTheObjectOnce) {
    const auto string = makeString("a string that each array holds");
    constexpr int kRounds = 300;
    for (int round = 0; round < kRounds; ++round) {
        const void* value = string.get();
        const CFArrayRef array =
            CFArrayCreate(kCFAllocatorDefault, &value, 1, &kCFTypeArrayCallBacks);
        EXPECT_EQ(CFGetRetainCount(string.get()), 2);
        for (int thread = 1; thread < kThreads; ++thread) {
            CFRetain(array);
        }
        onThreads([array](int) {
            EXPECT_EQ(CFArrayGetCount(array), 1);
            own(array);
        });
        EXPECT_EQ(CFGetRetainCount(string.get()), 1);
    }
}

TEST(CoreFoundationThreads, ThreadsReadOneTree) {
    const std::string document =
        "<dict><key>one</key><array><string>caf\u00e9</string><real>2.5</real></array>"
        "<key>two</key><date>2001-01-01T00:00:00Z</date></dict>";
    const auto tree = readDocument(document);
    const auto same = readDocument(document, kCFPropertyListImmutable);
    const auto* const root = static_cast<CFDictionaryRef>(tree.get());
    const auto xml = writeDocument(root);
    onThreads([&](int) {
        for (int round = 0; round < 200; ++round) {
            EXPECT_TRUE(equal(root, same.get()));
            EXPECT_EQ(CFHash(root), CFHash(same.get()));
            const void* const array = CFDictionaryGetValue(root, makeString("one").get());
            ASSERT_NE(array, nullptr);
            EXPECT_EQ(utf8Of(static_cast<CFStringRef>(
                          CFArrayGetValueAtIndex(static_cast<CFArrayRef>(array), 0))),
                      "caf\u00e9");
            EXPECT_TRUE(own(CFCopyDescription(root)));
            EXPECT_EQ(writeDocument(root), xml);
        }
    });
}

TEST(CoreFoundationThreads, ThreadsReadDocuments) {
    BinaryDocument binary;
    binary.addArray({1, 1});
    binary.addString("text");
    const std::string documents[] = {
        "<dict><key>k</key><integer>1</integer></dict>",
        "{ a = ( b, \"\\U00e9\" ); }",
        "<?xml version=\"1.0\" encoding=\"Shift_JIS\"?><string>\x93\xfa\x96{</string>",
        "<?xml version=\"1.0\" encoding=\"GBK\"?><string>\xd6\xd0\xce\xc4</string>",
        std::string("\xff\xfe<\0d\0i\0c\0t\0/\0>\0", 16),
        "<dict>",
        binary.bytes(),
    };
    std::vector<Owned<>> trees;
    for (const std::string& document : documents) {
        trees.push_back(readDocument(document));
    }
    const LoadedConverter shiftJis("CP932");
    const LoadedConverter gbk("GBK");
    onThreads([&](int thread) {
        for (std::size_t round = 0; round < 200; ++round) {
            const std::size_t index = (round + static_cast<std::size_t>(thread)) % trees.size();
            CFErrorRef given = nullptr;
            const auto tree = own(CFPropertyListCreateWithData(
                kCFAllocatorDefault, makeData(documents[index]).get(), 1, nullptr, &given));
            const auto error = own(given);
            EXPECT_EQ(static_cast<bool>(tree), static_cast<bool>(trees[index]));
            EXPECT_TRUE(!tree || equal(tree.get(), trees[index].get()));
        }
    });
}

TEST(CoreFoundationThreads, EqualConstantTextsAreOneString) {
    constexpr int kTexts = 500;
    std::vector<std::vector<CFStringRef>> found(kThreads, std::vector<CFStringRef>(kTexts));
    onThreads([&found](int thread) {
        for (int text = 0; text < kTexts; ++text) {
            // The threads create the strings in different orders.
            const int number = thread % 2 == 0 ? text : kTexts - 1 - text;
            found[static_cast<std::size_t>(thread)][static_cast<std::size_t>(number)] =
                __CFStringMakeConstantString(("of all threads " + std::to_string(number)).c_str());
        }
    });
    for (int thread = 1; thread < kThreads; ++thread) {
        EXPECT_EQ(found[static_cast<std::size_t>(thread)], found[0]);
    }
    EXPECT_EQ(utf8Of(found[0][7]), "of all threads 7");
}

TEST(CoreFoundationThreads, ThreadsShareConstants) {
    onThreads([](int) {
        for (int round = 0; round < 10000; ++round) {
            CFRetain(CFSTR("constant"));
            own<CFTypeRef>(CFSTR("constant"));
            CFRetain(kCFBooleanTrue);
            own<CFTypeRef>(kCFBooleanTrue);
            EXPECT_NE(CFHash(CFSTR("constant")), CFHash(CFSTR("another")));
        }
    });
}

// Each thread changes a dictionary of its own.
TEST(CoreFoundationThreads, ThreadsChangeTheirOwnContainers) {
    onThreads([](int) {
        const auto dictionary = makeDictionary();
        for (int key = 0; key < 1000; ++key) {
            CFDictionarySetValue(dictionary.get(), makeInteger(key).get(), CFSTR("value"));
        }
        for (int key = 0; key < 1000; key += 2) {
            CFDictionaryRemoveValue(dictionary.get(), makeInteger(key).get());
        }
        EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 500);
    });
}

}  // namespace
}  // namespace qv::tests
