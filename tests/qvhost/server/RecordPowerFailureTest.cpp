// SPDX-License-Identifier: Apache-2.0

// Opens what a power failure leaves of a record: a log that is cut, and mixtures of the blocks of
// two states of a file, of which the disk has taken some and not others.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "qvhost/server/RecordFiles.h"
#include "server/Record.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using tests::contentOf;
using tests::TemporaryDirectory;
using tests::writeFile;

struct Files {
    std::string database;
    std::string log;
};

// Only the record's destructor relies on SQLite's locks, which end here.
Files filesOf(const std::string& path) {
    return {contentOf(path).value(), contentOf(path + "-wal").value_or("")};
}

// Opens a record that consists of these files. Returns its revision.
int64_t revisionOf(const Files& files) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("record");
    writeFile(path, files.database);
    writeFile(path + "-wal", files.log);
    const Record::Contents contents = Record(path).read();
    EXPECT_EQ(differenceFrom(contents), "") << "at the revision " << contents.revision;
    return contents.revision;
}

// Takes each block at random from the one or the other state of a file. A file that grows may have
// its new length with blocks of zeros.
std::string mixtureOf(const std::string& old, const std::string& recent, std::mt19937& random) {
    constexpr std::size_t kBlock = 512;
    std::string mixture = old;
    if (random() % 4 != 0) {
        mixture.resize(std::max(old.size(), recent.size()));
    }
    const std::size_t share = random() % 8 + 1;
    for (std::size_t offset = 0; offset < recent.size(); offset += kBlock) {
        if (random() % 8 < share) {
            const std::size_t length = std::min(kBlock, recent.size() - offset);
            mixture.resize(std::max(mixture.size(), offset + length));
            mixture.replace(offset, length, recent, offset, length);
        }
    }
    return mixture;
}

TEST(RecordAfterPowerFailure, CutLogHoldsTheCommitsThatAreWholeInIt) {
    constexpr std::size_t kStep = 509;
    const TemporaryDirectory directory;
    const std::string path = directory.path("record");
    Record record(path);
    commitRevisions(record, 1, 2);
    // Moves the first commits into the database, so that the log is not all there is.
    record.close();
    Record next(path);
    std::vector<std::size_t> ends{0};
    for (int64_t revision = 3; revision <= 12; ++revision) {
        commitRevision(next, revision);
        ends.push_back(fs::file_size(path + "-wal"));
    }
    const Files files = filesOf(path);
    std::vector<std::size_t> lengths;
    for (std::size_t length = 0; length < files.log.size(); length += kStep) {
        lengths.push_back(length);
    }
    for (const std::size_t end : ends) {
        lengths.push_back(end);
        lengths.push_back(end + 1);
        lengths.push_back(end == 0 ? 0 : end - 1);
    }
    for (const std::size_t length : lengths) {
        const int64_t last =
            1 + (std::upper_bound(ends.begin(), ends.end(), length) - ends.begin());
        EXPECT_EQ(revisionOf({files.database, files.log.substr(0, length)}), last)
            << "the log has only " << length << " bytes";
    }
}

// The log grows at first. Later it is used again from its beginning, and old commits follow the new
// ones.
TEST(RecordAfterPowerFailure, CommitUnderWayIsThereWhollyOrNotAtAll) {
    constexpr int kMixtures = 10;
    std::mt19937 random(1);
    const TemporaryDirectory directory;
    const std::string path = directory.path("record");
    Record record(path);
    int64_t revision = 0;
    bool wasOld = false;
    bool wasNew = false;
    for (int round = 0; round < 40; ++round) {
        const int64_t skipped = round < 20 ? 0 : 40;
        commitRevisions(record, revision + 1, revision + skipped);
        revision += skipped;
        const Files before = filesOf(path);
        ++revision;
        commitRevision(record, revision);
        const Files after = filesOf(path);
        if (before.database != after.database) {
            continue;
        }
        for (int i = 0; i < kMixtures; ++i) {
            const Files mixture{before.database, mixtureOf(before.log, after.log, random)};
            const int64_t found = revisionOf(mixture);
            EXPECT_TRUE(found == revision - 1 || found == revision) << found;
            wasOld = wasOld || found == revision - 1;
            wasNew = wasNew || found == revision;
        }
    }
    EXPECT_TRUE(wasOld);
    EXPECT_TRUE(wasNew);
}

TEST(RecordAfterPowerFailure, DatabaseMayBeAnyMixtureWhileTheLogMoves) {
    constexpr int kMixtures = 100;
    constexpr int64_t kLast = 60;
    std::mt19937 random(2);
    const TemporaryDirectory directory;
    const std::string path = directory.path("record");
    Record record(path);
    commitRevisions(record, 1, kLast);
    const Files before = filesOf(path);
    record.close();
    const Files after = filesOf(path);
    ASSERT_NE(before.database, after.database);
    for (int i = 0; i < kMixtures; ++i) {
        const Files mixture{mixtureOf(before.database, after.database, random), before.log};
        EXPECT_EQ(revisionOf(mixture), kLast);
    }
    // The log is removed after the database is on the disk, so it may come back.
    EXPECT_EQ(revisionOf({after.database, before.log}), kLast);
    EXPECT_EQ(revisionOf(after), kLast);
}

}  // namespace
}  // namespace qv::host
