// SPDX-License-Identifier: Apache-2.0

// Tests the plug-in's log. Each record is one printable line, whatever clients register. The
// commands work whatever happens to the log file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "support/CancelledThread.h"
#include "support/EnvironmentVariable.h"
#include "support/Files.h"
#include "support/LoadedPlugin.h"
#include "support/SpecialFiles.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kAllLevels[] =
    "<plist><dict><key>DebugLevel</key><integer>7</integer></dict></plist>";

// Starts a plug-in that logs at all levels.
class Log : public testing::Test {
  protected:
    void SetUp() override {
        writeFile(directory_.path("namingService.conf.plist"), kAllLevels);
        ASSERT_EQ(plugin_.initialize(), QV_OK);
    }
    void TearDown() override { plugin_.finalize(); }

    // Checks that the commands work, whether or not their records are written.
    void expectCommandsWork() const {
        EXPECT_EQ(plugin_.registerServices({{1, "a"}}), QV_OK);
        EXPECT_THAT(plugin_.getServices(), ElementsAre(Service(1, "a")));
        EXPECT_EQ(plugin_.unregisterServices({1}), QV_OK);
    }

    std::vector<std::string> lines() const {
        std::ifstream file(log_, std::ios::binary);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    // The first member, because loading sets the directories in the environment.
    const LoadedPlugin plugin_;
    const TemporaryDirectory directory_;
    const std::string logDirectory_ = directory_.path("log");
    const std::string log_ = logDirectory_ + "/namingService.log";
    const EnvironmentVariable configVariable_{"QV_CONFIG_DIR", directory_.path()};
    const EnvironmentVariable logVariable_{"QV_LOG_DIR", logDirectory_};
};

bool isRecord(const std::string& line) {
    static const std::regex head(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \d+/\d+ )"
                                 R"((info|debug) namingService: )");
    return std::regex_search(line.substr(0, 120), head, std::regex_constants::match_continuous) &&
           std::none_of(line.begin(), line.end(), [](char byte) {
               return static_cast<unsigned char>(byte) < 0x20 || byte == '\x7f';
           });
}

TEST_F(Log, AddressCannotForgeARecord) {
    const std::string forged =
        "2026-11-20T09:19:12.364Z 1/1 info namingService: QvPluginFinalize enter";
    std::string everyByte;
    for (int byte = 1; byte < 256; ++byte) {
        everyByte += static_cast<char>(byte);
    }
    const std::size_t before = lines().size();
    plugin_.registerServices({{1, "a\n" + forged},
                              {2, "a\r\x1b[1A" + forged},
                              {3, "a\u2028" + forged},
                              {4, everyByte},
                              {5, everyByte + std::string(100'000, '\n')},
                              {6, std::string(8000, '\xe2') + everyByte}});
    const auto all = lines();
    // One record for the command, one for each address, and one for the save.
    ASSERT_THAT(all, SizeIs(before + 8));
    for (const std::string& line : all) {
        EXPECT_TRUE(isRecord(line)) << line;
    }
    EXPECT_THAT(all[before + 1], EndsWith("id: 1, address: a\\n" + forged));
    EXPECT_THAT(all[before + 2], EndsWith("id: 2, address: a\\r\\x1b[1A" + forged));
    EXPECT_THAT(all[before + 3], EndsWith("id: 3, address: a\\xe2\\x80\\xa8" + forged));
}

TEST_F(Log, AddressIsShownUpToItsFirstZeroByte) {
    const std::size_t before = lines().size();
    plugin_.registerServices({{1, std::string("seen\0unseen", 11)}});
    EXPECT_THAT(lines().at(before + 1), EndsWith("id: 1, address: seen"));
}

TEST_F(Log, SpecialFileInPlaceOfTheLogLosesRecordsOnly) {
    using Put = void (*)(const std::string&);
    constexpr Put kPuts[] = {
        [](const std::string& path) { std::filesystem::create_directory(path); },
        [](const std::string& path) { std::filesystem::create_symlink(path, path); },
        [](const std::string& path) { std::filesystem::create_symlink("/dev/full", path); },
        makePipe,
        makeSocket,
    };
    for (const Put put : kPuts) {
        std::filesystem::remove(log_);
        put(log_);
        expectCommandsWork();
        // The plug-in can also be initialised.
        plugin_.finalize();
        EXPECT_EQ(plugin_.initialize(), QV_OK);
        expectCommandsWork();
        std::filesystem::remove(log_);
        plugin_.finalize();
        EXPECT_EQ(plugin_.initialize(), QV_OK);
        plugin_.getServices();
        EXPECT_THAT(lines().back(), EndsWith("getServices in"));
    }
}

TEST_F(Log, CancelledHostThreadEndsAfterItsCommand) {
    Services listed;
    EXPECT_TRUE(isCancelledAfter([&] {
        plugin_.unregisterServices({1});
        listed = plugin_.getServices();
    }));
    EXPECT_THAT(listed, IsEmpty());
    expectCommandsWork();
}

}  // namespace
}  // namespace qv::tests
