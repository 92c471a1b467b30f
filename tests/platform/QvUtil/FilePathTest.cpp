// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "QvUtil.h"
#include "support/EnvironmentVariable.h"

#ifndef QV_DEFAULT_CONFIG_DIR
#ifdef __APPLE__
#define QV_DEFAULT_CONFIG_DIR "/Library/Application Support/Vornak/LorxCore"
#else
#define QV_DEFAULT_CONFIG_DIR "/var/lib/Vornak/LorxCore"
#endif
#endif

namespace {

using qv::tests::EnvironmentVariable;

const std::string defaultPath = QV_DEFAULT_CONFIG_DIR "/namingService.plist";

TEST(FilePath, IsInTheDirectoryOfTheEnvironmentOrOfTheBuild) {
    const struct {
        std::optional<std::string> variable;
        const char* name;
        std::string path;
    } cases[] = {{std::nullopt, "namingService.plist", defaultPath},
                 {"", "namingService.plist", defaultPath},
                 {"/etc/elsewhere", "a.plist", "/etc/elsewhere/a.plist"},
                 {"/%s%n", "%d", "/%s%n/%d"}};
    for (const auto& [value, name, path] : cases) {
        const EnvironmentVariable variable("QV_CONFIG_DIR", value);
        char buffer[1024];
        EXPECT_EQ(QvGetFilePath(buffer, sizeof buffer, name), buffer);
        EXPECT_EQ(buffer, path);
    }
}

TEST(FilePath, FitsABufferOfItsSize) {
    const EnvironmentVariable variable("QV_CONFIG_DIR", "/etc");
    const std::string expected = "/etc/name";
    std::vector<char> buffer(expected.size() + 1, '#');
    EXPECT_EQ(QvGetFilePath(buffer.data(), static_cast<int>(buffer.size()), "name"), buffer.data());
    EXPECT_EQ(buffer.data(), expected);
}

TEST(FilePath, SmallerBufferIsRefusedAndHoldsAnEmptyText) {
    const EnvironmentVariable variable("QV_CONFIG_DIR", "/etc");
    const std::string expected = "/etc/name";
    for (std::size_t size = 1; size <= expected.size(); ++size) {
        std::vector<char> buffer(size, '#');
        EXPECT_EQ(QvGetFilePath(buffer.data(), static_cast<int>(size), "name"), nullptr) << size;
        EXPECT_EQ(buffer[0], '\0') << size;
    }
}

TEST(FilePath, BufferOfNoSizeIsNotWritten) {
    char buffer[] = "before";
    EXPECT_EQ(QvGetFilePath(buffer, 0, "name"), nullptr);
    EXPECT_EQ(QvGetFilePath(buffer, -1, "name"), nullptr);
    EXPECT_STREQ(buffer, "before");
}

TEST(FilePath, NullBufferOrNameIsRefused) {
    char buffer[1024];
    EXPECT_EQ(QvGetFilePath(nullptr, sizeof buffer, "name"), nullptr);
    EXPECT_EQ(QvGetFilePath(buffer, sizeof buffer, nullptr), nullptr);
}

TEST(UtilDebugLevel, IsTheLevelThatWasSet) {
    const int before = QvGetUtilDebugLevel();
    for (int level = 0; level <= 7; ++level) {
        QvSetUtilDebugLevel(level);
        EXPECT_EQ(QvGetUtilDebugLevel(), level);
    }
    QvSetUtilDebugLevel(before);
}

TEST(UtilDebugLevel, OutOfRangeIsIgnored) {
    const int before = QvGetUtilDebugLevel();
    QvSetUtilDebugLevel(3);
    QvSetUtilDebugLevel(-1);
    QvSetUtilDebugLevel(8);
    EXPECT_EQ(QvGetUtilDebugLevel(), 3);
    QvSetUtilDebugLevel(before);
}

}  // namespace
