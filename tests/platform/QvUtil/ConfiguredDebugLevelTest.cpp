// SPDX-License-Identifier: Apache-2.0

// Tests the level that QvInitDebugByConfig() reads from the configuration file.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "QvLog.h"
#include "QvUtil.h"
#include "platform/CoreFoundation/Documents.h"
#include "support/ScratchDirectories.h"

namespace {

using namespace std::string_literals;
using qv::tests::BinaryDocument;

using Handle = std::unique_ptr<void, decltype(&LorxReleaseDbgLog)>;

std::string xmlDocument(const std::string& root) {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">)" +
           root + "</plist>\n";
}

std::string dictionaryWith(const std::string& value) {
    return "<dict><key>DebugLevel</key>" + value + "</dict>";
}

// Returns a binary document whose root dictionary has the key "DebugLevel" with the level 3.
BinaryDocument binaryDocument() {
    BinaryDocument document;
    document.addDictionary({1}, {2});
    document.addString("DebugLevel");
    document.add("\x10\x03");
    return document;
}

class ConfiguredDebugLevel : public testing::Test {
  protected:
    static constexpr const char* configName = "module.conf.plist";

    // Returns the highest level that the log of this configuration writes, or -1 if there is no
    // log.
    int threshold(const char* name = configName) const {
        void* handle = nullptr;
        QvInitDebugByConfig(&handle, name, "module", directories.path("module.log").c_str());
        const Handle log(handle, LorxReleaseDbgLog);
        if (log == nullptr) {
            return -1;
        }
        int level = 7;
        while (level > 0 && LorxIsEnableLog(log.get(), level) == 0) {
            --level;
        }
        return level;
    }

    int thresholdOf(const std::string& content) const {
        std::ofstream(configPath, std::ios::binary) << content;
        return threshold();
    }

    const qv::tests::ScratchDirectories directories{};
    const std::string configPath = directories.path(configName);
};

TEST_F(ConfiguredDebugLevel, IsTheIntegerOfTheRootDictionary) {
    for (int level = 0; level <= 7; ++level) {
        const std::string value = "<integer>" + std::to_string(level) + "</integer>";
        EXPECT_EQ(thresholdOf(xmlDocument(dictionaryWith(value))), level);
    }
}

TEST_F(ConfiguredDebugLevel, MayFollowOtherKeys) {
    EXPECT_EQ(thresholdOf(xmlDocument("<dict><key>Address</key><dict><key>services</key><array/>"
                                      "</dict><key>DebugLevel</key><integer>3</integer>"
                                      "<key>debuglevel</key><integer>4</integer></dict>")),
              3);
}

TEST_F(ConfiguredDebugLevel, IsReadFromABinaryDocument) {
    EXPECT_EQ(thresholdOf(binaryDocument().bytes()), 3);
}

TEST_F(ConfiguredDebugLevel, IsSixUnlessTheValueIsAWholeNumberInRange) {
    EXPECT_EQ(thresholdOf(xmlDocument(dictionaryWith("<real>5.0</real>"))), 5);
    for (const char* const value : {"<real>5.5</real>",
                                    "<real>0.9999999</real>",
                                    "<integer>-1</integer>",
                                    "<integer>8</integer>",
                                    "<integer>4294967301</integer>",
                                    "<integer>-4294967291</integer>",
                                    "<integer>9223372036854775807</integer>",
                                    "<integer>18446744073709551615</integer>",
                                    "<real>-1</real>",
                                    "<real>8</real>",
                                    "<real>1e300</real>",
                                    "<real>nan</real>",
                                    "<real>-infinity</real>",
                                    "<string>5</string>",
                                    "<true/>",
                                    "<false/>",
                                    "<data>BQ==</data>",
                                    "<date>2026-11-20T09:19:12Z</date>",
                                    "<array><integer>5</integer></array>",
                                    "<dict><key>DebugLevel</key><integer>5</integer></dict>"}) {
        EXPECT_EQ(thresholdOf(xmlDocument(dictionaryWith(value))), 6) << value;
    }
    // Every value of an old-style document is a string.
    EXPECT_EQ(thresholdOf("{ DebugLevel = 5; }"), 6);
}

TEST_F(ConfiguredDebugLevel, IsSixUnlessTheKeyIsInTheRootDictionary) {
    const std::string dictionary = dictionaryWith("<integer>5</integer>");
    for (const std::string& root :
         {"<dict/>"s, "<dict><key>debugLevel</key><integer>5</integer></dict>"s,
          "<dict><key>a</key>" + dictionary + "</dict>", "<integer>5</integer>"s,
          "<string>DebugLevel</string>"s, "<array>" + dictionary + "</array>"}) {
        EXPECT_EQ(thresholdOf(xmlDocument(root)), 6) << root;
    }
}

TEST_F(ConfiguredDebugLevel, IsSixWhenTheDocumentIsDamaged) {
    const std::string document = xmlDocument(dictionaryWith("<integer>5</integer>"));
    const std::string binary = binaryDocument().bytes();
    for (const std::string& damaged :
         {document.substr(0, document.find("</dict>")), binary.substr(0, binary.size() - 1), ""s,
          "\0"s, std::string(1000, '\xff')}) {
        EXPECT_EQ(thresholdOf(damaged), 6) << damaged;
    }
}

TEST_F(ConfiguredDebugLevel, IsSixWhenTheTreeIsNotValid) {
    BinaryDocument withANullValue;
    withANullValue.addDictionary({1, 2}, {3, 4});
    withANullValue.addString("DebugLevel");
    withANullValue.addString("a");
    withANullValue.add("\x10\x03");
    withANullValue.add("\0"s);
    EXPECT_EQ(thresholdOf(withANullValue.bytes()), 6);
    BinaryDocument withANumberAsAKey;
    withANumberAsAKey.addDictionary({1, 2}, {3, 3});
    withANumberAsAKey.addString("DebugLevel");
    withANumberAsAKey.add("\x10\x01");
    withANumberAsAKey.add("\x10\x03");
    EXPECT_EQ(thresholdOf(withANumberAsAKey.bytes()), 6);
}

TEST_F(ConfiguredDebugLevel, IsSixWithoutAFile) {
    EXPECT_EQ(threshold(), 6);
    EXPECT_EQ(threshold(nullptr), 6);
    EXPECT_EQ(threshold(""), 6);
    EXPECT_EQ(threshold(std::string(10'000, 'n').c_str()), 6);
}

TEST_F(ConfiguredDebugLevel, FileOverSixteenMebibytesIsNotRead) {
    const std::string document = xmlDocument(dictionaryWith("<integer>5</integer>"));
    std::string padded = document;
    padded.insert(document.find("<dict>"), (16U << 20) - document.size(), ' ');
    EXPECT_EQ(thresholdOf(padded), 5);
    padded.insert(document.find("<dict>"), 1, ' ');
    EXPECT_EQ(thresholdOf(padded), 6);
}

TEST_F(ConfiguredDebugLevel, FileIsClosed) {
    const auto nextDescriptor = [] {
        const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ::close(descriptor);
        return descriptor;
    };
    const int before = nextDescriptor();
    EXPECT_EQ(threshold(), 6);
    EXPECT_EQ(thresholdOf(xmlDocument(dictionaryWith("<integer>5</integer>"))), 5);
    EXPECT_EQ(thresholdOf(""), 6);
    std::filesystem::remove(configPath);
    std::filesystem::create_directory(configPath);
    EXPECT_EQ(threshold(), 6);
    EXPECT_EQ(nextDescriptor(), before);
}

}  // namespace
