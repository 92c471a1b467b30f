// SPDX-License-Identifier: Apache-2.0

// Makes each allocation of a record and of SQLite fail in turn.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "qvhost/server/RecordFiles.h"
#include "server/Record.h"
#include "support/MemoryShortage.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using tests::Shortage;
using tests::sweepShortages;
using tests::TemporaryDirectory;

constexpr int64_t kBefore = 6;

class RecordWithoutMemory : public testing::Test {
  protected:
    RecordWithoutMemory() {
        Record record(before_.path("record"));
        commitRevisions(record, 1, kBefore);
    }

    // Puts the record of the first commits in place.
    void restore() const {
        fs::remove_all(work_.path("record"));
        fs::remove_all(work_.path("record-wal"));
        fs::copy(before_.path(), work_.path());
    }

    const TemporaryDirectory before_;
    const TemporaryDirectory work_;
    const std::string path_ = work_.path("record");
};

// Runs the action. Returns true if it ended, false if memory ran out.
template <class Action>
bool endsDuring(Shortage& shortage, Action action) {
    bool hasFailed = false;
    const bool ended = shortage.during([&] {
        try {
            action();
        } catch (const RecordError& error) {
            EXPECT_EQ(error.kind(), RecordError::Kind::Failed) << error.what();
            hasFailed = true;
        }
    });
    EXPECT_TRUE(!hasFailed || shortage.happened());
    return ended && !hasFailed;
}

TEST_F(RecordWithoutMemory, NothingIsLostWhileItIsOpened) {
    const int allocations = sweepShortages([this](Shortage& shortage) {
        restore();
        endsDuring(shortage, [this] { const Record record(path_); });
        EXPECT_EQ(problemIn(path_, kBefore, kBefore), "");
    });
    EXPECT_GT(allocations, 100);
}

TEST_F(RecordWithoutMemory, NewRecordCanBeMadeLater) {
    const int allocations = sweepShortages([this](Shortage& shortage) {
        fs::remove(path_);
        endsDuring(shortage, [this] { const Record record(path_); });
        EXPECT_EQ(problemIn(path_, 0, 0), "");
    });
    EXPECT_GT(allocations, 100);
}

TEST_F(RecordWithoutMemory, ReadFailsOrReadsEverything) {
    const int allocations = sweepShortages([this](Shortage& shortage) {
        restore();
        Record record(path_);
        endsDuring(shortage, [&record] {
            const Record::Contents contents = record.read();
            EXPECT_EQ(contents.revision, kBefore);
            EXPECT_EQ(differenceFrom(contents), "");
        });
        EXPECT_EQ(differenceFrom(record.read()), "");
    });
    EXPECT_GT(allocations, 20);
}

TEST_F(RecordWithoutMemory, CommitIsWholeOrNotThere) {
    const int allocations = sweepShortages([this](Shortage& shortage) {
        restore();
        Record record(path_);
        const bool isAcknowledged =
            endsDuring(shortage, [&record] { commitRevision(record, kBefore + 1); });
        // Nothing of the commit is left that would keep the record from closing.
        record.close();
        EXPECT_EQ(problemIn(path_, isAcknowledged ? kBefore + 1 : kBefore, kBefore + 1), "");
    });
    EXPECT_GT(allocations, 10);
}

TEST_F(RecordWithoutMemory, NothingIsLostWhileItIsClosed) {
    const int allocations = sweepShortages([this](Shortage& shortage) {
        restore();
        Record record(path_);
        commitRevision(record, kBefore + 1);
        endsDuring(shortage, [&record] { record.close(); });
        EXPECT_EQ(problemIn(path_, kBefore + 1, kBefore + 1), "");
    });
    EXPECT_GT(allocations, 0);
}

}  // namespace
}  // namespace qv::host
