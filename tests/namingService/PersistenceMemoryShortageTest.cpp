// Memory runs out while the plug-in loads and saves. The file is whole at any time, and the next
// registration that works brings it up to date.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <new>
#include <string>

#include "support/ConfigurationDocuments.h"
#include "support/EnvironmentVariable.h"
#include "support/FailingCalls.h"
#include "support/Files.h"
#include "support/LoadedPlugin.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::Optional;

// Longer than a string holds within itself.
const std::string kOld = "unix:/var/run/lorx/the-address-as-it-was.sock";
const std::string kNew = "unix:/var/run/lorx/the-address-as-requested.sock";

enum class Outcome { kWorked, kFailed, kThrew };

class PersistenceMemoryShortage : public testing::Test {
  protected:
    void SetUp() override { std::filesystem::create_directory(directory_.path("backup")); }
    void TearDown() override { plugin.finalize(); }

    void startWith(const std::string& content) const {
        plugin.finalize();
        writeFile(path, content);
        writeFile(backup, kBackup);
        plugin.initialize();
    }

    // Carries out the action with one allocation failing after so many that work.
    template <class Action>
    static Outcome afterAllocations(int count, Action action) {
        Outcome outcome = Outcome::kFailed;
        failMallocAfter(count);
        try {
            action();
        } catch (const std::bad_alloc&) {
            outcome = Outcome::kThrew;
        }
        return mallocFailed() ? outcome : Outcome::kWorked;
    }

    // First, so that it does not choose its own directory afterwards.
    const LoadedPlugin plugin;

  private:
    TemporaryDirectory directory_;
    EnvironmentVariable variable_{"QV_CONFIG_DIR", directory_.path()};

  protected:
    static inline const std::string kBackup = documentOf({{1, "from the backup"}});

    const std::string path = directory_.path(kConfigurationFile);
    const std::string backup = directory_.path("backup/") + kConfigurationFile;
};

TEST_F(PersistenceMemoryShortage, WhatARegistrationThatThrewHasDoneIsSavedByTheNext) {
    const std::string before = documentOf({{1, kOld}, {2, kOld}});
    const std::string request = encode({{1, kNew}, {3, kNew}, {2, kNew}});
    int thrown = 0;
    int thrownUnsaved = 0;
    for (int count = 0;; ++count) {
        startWith(before);
        const CommandHandler handler = plugin.handler(QV_COMMAND_REGISTER_SERVICES);
        const Outcome outcome = afterAllocations(count, [&] {
            handler(0, request.data(), static_cast<int>(request.size()), nullptr, nullptr);
        });
        const Services memory = plugin.getServices();
        EXPECT_THAT(contentOf(path), AnyOf(Optional(before), Optional(documentOf(memory))));
        EXPECT_THAT(contentOf(backup), AnyOf(Optional(kBackup), Optional(before)));
        if (outcome == Outcome::kWorked) {
            EXPECT_THAT(contentOf(path), Optional(documentOf(memory)));
            EXPECT_EQ(memory, (Services{{1, kNew}, {2, kNew}, {3, kNew}}));
            break;
        }
        if (outcome == Outcome::kThrew) {
            ++thrown;
            thrownUnsaved += contentOf(path) != documentOf(memory) ? 1 : 0;
            // Changes nothing itself.
            plugin.registerServices({memory.at(0)});
            EXPECT_THAT(contentOf(path), Optional(documentOf(memory))) << count;
        } else {
            // Nobody was told: a save that fails waits for the next change.
            plugin.registerServices({{9, "one more"}});
            Services all = memory;
            all.emplace_back(9, "one more");
            EXPECT_THAT(contentOf(path), Optional(documentOf(all))) << count;
        }
        ASSERT_FALSE(HasFailure()) << "allocation " << count << " failed";
    }
    EXPECT_GT(thrown, 5);
    // The case that this is about was among them.
    EXPECT_GT(thrownUnsaved, 2);
}

TEST_F(PersistenceMemoryShortage, RegistrationThatThrewIsSavedOnce) {
    const std::string request = encode({{1, kNew}, {3, kNew}});
    for (int count = 0;; ++count) {
        startWith(documentOf({{1, kOld}}));
        const CommandHandler handler = plugin.handler(QV_COMMAND_REGISTER_SERVICES);
        const Outcome outcome = afterAllocations(count, [&] {
            handler(0, request.data(), static_cast<int>(request.size()), nullptr, nullptr);
        });
        if (outcome == Outcome::kWorked) {
            break;
        }
        const Service known = plugin.getServices().at(0);
        plugin.registerServices({known});
        // Whatever somebody writes now stays, for nothing is left to be saved.
        writeFile(path, "someone else's");
        plugin.registerServices({known});
        EXPECT_THAT(contentOf(path), Optional(std::string("someone else's")));
        ASSERT_FALSE(HasFailure()) << "allocation " << count << " failed";
    }
}

TEST_F(PersistenceMemoryShortage, InitialisationMayBeTriedAgainAndBothFilesAreWhole) {
    const std::string stored = documentOf({{1, kOld}, {2, kOld}});
    int thrown = 0;
    for (int count = 0;; ++count) {
        plugin.finalize();
        writeFile(path, stored);
        writeFile(backup, kBackup);
        const Outcome outcome = afterAllocations(count, [this] { plugin.initialize(); });
        // The file may have been taken for damaged.
        EXPECT_THAT(contentOf(path), AnyOf(Optional(stored), Optional(kBackup)));
        EXPECT_THAT(contentOf(backup), Optional(kBackup));
        if (outcome == Outcome::kWorked) {
            EXPECT_THAT(plugin.getServices(), ElementsAre(Service(1, kOld), Service(2, kOld)));
            break;
        }
        thrown += outcome == Outcome::kThrew ? 1 : 0;
        EXPECT_EQ(plugin.initialize(), QV_OK);
        EXPECT_EQ(plugin.registerServices({{3, kNew}}), QV_OK);
        ASSERT_FALSE(HasFailure()) << "allocation " << count << " failed";
    }
    EXPECT_GT(thrown, 2);
}

}  // namespace
}  // namespace qv::tests
