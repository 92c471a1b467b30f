// SPDX-License-Identifier: Apache-2.0

// Limits the length of files, so that a write stops there, as on a full disk. The host continues in
// memory. What the next host finds depends on whether the backup fits.

#include <gtest/gtest.h>

#include <cstddef>

#include "ConfigurationFiles.h"
#include "support/LongestFile.h"

namespace qv::tests {
namespace {

const Services kSaved{{1, "unix:/run/lorx/supervisor.sock"}, {2, "unix:/run/lorx/scanner.sock"}};
// The service is listed first, so that it moves the others in the file.
const Service kAdded{-1, "unix:/run/lorx/updater.sock"};
const Service kNext{4, "unix:/run/lorx/reporter.sock"};
const Services kWithAdded{kAdded, kSaved[0], kSaved[1]};
const Services kWithNext{kAdded, kSaved[0], kSaved[1], kNext};

class FullDisk : public testing::Test {
  protected:
    // Lets the plug-in write the old and the new file.
    FullDisk() {
        files_.put(document(Services()), document(Services()));
        plugin_.initialize();
        plugin_.registerServices(kSaved);
        old_ = *files_.main();
        plugin_.registerServices({kAdded});
        new_ = *files_.main();
        plugin_.finalize();
        files_.put(old_, old_);
    }

    // Registers a service while files are limited to the length, and keeps copies of the files.
    // Then registers another one without the limit and checks that the host saves both.
    void registerWithRoomFor(std::size_t length) const {
        plugin_.initialize();
        {
            const LongestFile limit(length);
            EXPECT_EQ(plugin_.registerServices({kAdded}), QV_OK);
            EXPECT_EQ(plugin_.getServices(), kWithAdded);
        }
        files_.keep();
        EXPECT_EQ(plugin_.registerServices({kNext}), QV_OK);
        EXPECT_EQ(plugin_.getServices(), kWithNext);
        plugin_.finalize();
        EXPECT_EQ(files_.start(plugin_), kWithNext);
    }

    const LoadedPlugin plugin_;
    const ConfigurationFiles files_;
    std::string old_;
    std::string new_;
};

TEST_F(FullDisk, FileIsCutAndTheBackupHasTheLastSave) {
    const std::size_t room = old_.size() + 40;
    ASSERT_LT(room, new_.size());
    registerWithRoomFor(room);
    EXPECT_EQ(files_.keptMain(), new_.substr(0, room));
    EXPECT_EQ(files_.keptBackup(), old_);
    EXPECT_EQ(files_.startFromKept(plugin_), kSaved);
}

TEST_F(FullDisk, BothFilesAreDamagedIfTheBackupDoesNotFit) {
    const std::size_t room = old_.size() - 40;
    registerWithRoomFor(room);
    EXPECT_EQ(files_.keptMain(), new_.substr(0, room) + old_.substr(room));
    EXPECT_EQ(files_.keptBackup(), old_.substr(0, room));
    EXPECT_EQ(files_.startFromKept(plugin_), Services());
}

TEST_F(FullDisk, LaterStartRepeatsARestoreThatDidNotFit) {
    files_.put(std::nullopt, old_);
    const std::size_t room = old_.size() - 40;
    {
        const LongestFile limit(room);
        EXPECT_EQ(plugin_.initialize(), QV_OK);
    }
    EXPECT_EQ(files_.main(), old_.substr(0, room));
    EXPECT_EQ(plugin_.registerServices({kAdded}), QV_OK);
    EXPECT_EQ(plugin_.getServices(), Services{kAdded});
    plugin_.finalize();
    EXPECT_EQ(files_.start(plugin_), kSaved);
    EXPECT_EQ(files_.main(), old_);
}

}  // namespace
}  // namespace qv::tests
