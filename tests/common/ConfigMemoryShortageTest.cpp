// Makes memory run out in the operations of the configuration file. Afterwards both files and the
// document in memory are whole.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>

#include "QvConfig.h"
#include "common/MemoryShortage.h"
#include "support/ConfigurationDocuments.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

using qor::kevra::ServiceInfoArray;
using testing::AnyOf;
using testing::Optional;

using Config = qor::kevra::QvConfig<qor::kevra::NullMutex>;

const std::string kLong(60, 'x');
const std::string kOriginal = documentOf({{1, "original" + kLong}});
const std::string kBackup = documentOf({{1, "backup" + kLong}});

// Returns a document with `count` keys that the directory does not use.
std::string otherKeys(int count) {
    std::string content = "<plist><dict>";
    for (int key = 0; key < count; ++key) {
        content += "<key>" + std::to_string(key) + "</key><true/>";
    }
    return content + "</dict></plist>";
}

ServiceInfoArray makeServices() {
    ServiceInfoArray message;
    for (int id = 1; id < 4; ++id) {
        auto* const service = message.add_services();
        service->set_id(-1000000 * id);
        service->set_address(std::to_string(id) + kLong);
    }
    return message;
}

std::string storedIn(Config& config) {
    ServiceInfoArray message;
    return config.get(message, "Address") ? message.SerializeAsString() : "nothing";
}

class ConfigMemoryShortage : public testing::Test {
  protected:
    ConfigMemoryShortage() { std::filesystem::create_directory(directory_.path("backup")); }

    const TemporaryDirectory directory_;
    const std::string path = directory_.path(kConfigurationFile);
    const std::string backup = directory_.path("backup/") + kConfigurationFile;
};

TEST_F(ConfigMemoryShortage, LoadKeepsTheFileOrRestoresIt) {
    const int count = sweepShortages([this](Shortage& shortage) {
        writeFile(path, kOriginal);
        writeFile(backup, kBackup);
        std::optional<Config> config;
        const bool ended = shortage.during([&] { config.emplace(path.c_str()); });
        EXPECT_EQ(ended, config.has_value());
        EXPECT_THAT(contentOf(path), AnyOf(Optional(kOriginal), Optional(kBackup)));
        EXPECT_THAT(contentOf(backup), Optional(kBackup));
        EXPECT_TRUE(shortage.happened() || contentOf(path) == kOriginal);
    });
    EXPECT_GE(count, 10);
}

TEST_F(ConfigMemoryShortage, SetReplacesEverythingOrNothing) {
    const ServiceInfoArray services = makeServices();
    // With some numbers of keys, the dictionary must grow for one more.
    for (int others = -1; others <= 40; ++others) {
        SCOPED_TRACE(std::to_string(others) + " other keys");
        writeFile(path, others < 0 ? kOriginal : otherKeys(others));
        const int count = sweepShortages([&](Shortage& shortage) {
            Config config(path.c_str());
            const std::string former = storedIn(config);
            bool isSet = false;
            const bool ended = shortage.during([&] { isSet = config.set(services, "Address"); });
            EXPECT_TRUE(!ended || isSet || shortage.happened());
            EXPECT_EQ(storedIn(config), ended && isSet ? services.SerializeAsString() : former);
        });
        EXPECT_GE(count, 15);
    }
}

TEST_F(ConfigMemoryShortage, SaveWritesEverythingOrNothing) {
    const ServiceInfoArray services = makeServices();
    const std::string expected =
        documentOf({{-1000000, "1" + kLong}, {-2000000, "2" + kLong}, {-3000000, "3" + kLong}});
    for (const bool hasSavedBefore : {false, true}) {
        const int count = sweepShortages([&](Shortage& shortage) {
            writeFile(path, kOriginal);
            writeFile(backup, kBackup);
            Config config(path.c_str());
            EXPECT_TRUE(!hasSavedBefore || config.save());
            writeFile(backup, kBackup);
            EXPECT_TRUE(config.set(services, "Address"));
            bool isSaved = false;
            const bool ended = shortage.during([&] { isSaved = config.save(); });
            EXPECT_TRUE(!ended || isSaved || shortage.happened());
            EXPECT_THAT(contentOf(path), Optional(ended && isSaved ? expected : kOriginal));
            EXPECT_THAT(contentOf(backup), AnyOf(Optional(kOriginal), Optional(kBackup)));
            // The next save writes everything.
            EXPECT_TRUE(config.save());
            EXPECT_THAT(contentOf(path), Optional(expected));
        });
        EXPECT_GE(count, 5);
    }
}

TEST_F(ConfigMemoryShortage, CopyReplacesTheBackupOrIsRefused) {
    writeFile(path, kOriginal);
    Config config(path.c_str());
    const int count = sweepShortages([&](Shortage& shortage) {
        writeFile(backup, kBackup);
        bool isCopied = false;
        shortage.during([&] { isCopied = config.copytobackup(); });
        EXPECT_TRUE(isCopied || shortage.happened());
        EXPECT_THAT(contentOf(backup), Optional(isCopied ? kOriginal : kBackup));
    });
    EXPECT_GE(count, 3);
}

TEST_F(ConfigMemoryShortage, DeletedFileIsMadeAgainWhole) {
    const ServiceInfoArray services = makeServices();
    sweepShortages([&](Shortage& shortage) {
        writeFile(path, kOriginal);
        Config config(path.c_str());
        EXPECT_TRUE(config.save());
        std::filesystem::remove(path);
        bool isSaved = false;
        shortage.during([&] { isSaved = config.save(); });
        EXPECT_TRUE(isSaved || shortage.happened());
        EXPECT_TRUE(config.save());
        EXPECT_THAT(contentOf(path), Optional(kOriginal));
        // The descriptors of the deleted file stay open.
        for (const int descriptor : descriptorsBelow(directory_.path())) {
            struct stat status = {};
            if (::fstat(descriptor, &status) == 0 && status.st_nlink == 0) {
                ::close(descriptor);
            }
        }
    });
}

TEST_F(ConfigMemoryShortage, GetLeavesNothingBehind) {
    writeFile(path, kOriginal);
    Config config(path.c_str());
    const std::string expected = storedIn(config);
    const int count = sweepShortages([&](Shortage& shortage) {
        ServiceInfoArray message;
        bool isGot = false;
        shortage.during([&] { isGot = config.get(message, "Address"); });
        EXPECT_TRUE(isGot || shortage.happened());
        EXPECT_TRUE(shortage.happened() || message.SerializeAsString() == expected);
        EXPECT_EQ(storedIn(config), expected);
    });
    EXPECT_GE(count, 5);
}

}  // namespace
}  // namespace qv::tests
