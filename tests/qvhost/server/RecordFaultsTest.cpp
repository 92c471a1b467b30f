// SPDX-License-Identifier: Apache-2.0

// Makes each system call of a record fail, kills the process at each of them, and lets the disk be
// full. What was acknowledged is there afterwards, and nothing is taken for damage.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "qvhost/server/RecordFiles.h"
#include "server/Record.h"
#include "support/ChildRun.h"
#include "support/Files.h"
#include "support/LongestFile.h"
#include "support/SystemCallTracer.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using tests::Fault;
using tests::SystemCall;
using tests::TemporaryDirectory;
using tests::TracedRun;

// What a child tells while it works, so that the parent knows it after a kill.
struct Progress {
    int64_t begun = 0;
    int64_t acknowledged = 0;
};

// A Progress in memory that the parent and its children share.
class SharedProgress {
  public:
    SharedProgress()
        : memory_(::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                         MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (memory_ == MAP_FAILED) {
            throw std::bad_alloc();
        }
    }
    ~SharedProgress() { ::munmap(memory_, sizeof(Progress)); }
    SharedProgress(const SharedProgress&) = delete;
    SharedProgress& operator=(const SharedProgress&) = delete;

    volatile Progress& operator*() const { return *static_cast<Progress*>(memory_); }
    volatile Progress* operator->() const { return &**this; }

    void commitNext(Record& record) const {
        (*this)->begun = (*this)->acknowledged + 1;
        commitRevision(record, (*this)->begun);
        (*this)->acknowledged = (*this)->begun;
    }

  private:
    void* memory_;
};

TEST(RecordProcesses, KilledProcessLeavesWhatItAcknowledged) {
    constexpr int kKills = 100;
    std::mt19937 random(1);
    const TemporaryDirectory files;
    const std::string path = files.path("record");
    const SharedProgress progress;
    for (int i = 0; i < kKills; ++i) {
        const int64_t last = progress->acknowledged + static_cast<int64_t>(random() % 30);
        const unsigned spins = random() % 200'000;
        const auto commitForEver = [&]() -> std::string {
            Record record(path);
            progress->acknowledged = record.read().revision;
            for (;;) {
                progress.commitNext(record);
            }
        };
        const auto killAfter = [&](pid_t child) {
            while (progress->acknowledged < last) {
            }
            // Ends in the middle of some step of a commit.
            for (volatile unsigned spin = 0; spin < spins; spin = spin + 1) {
            }
            ::kill(child, SIGKILL);
            return tests::awaitEnd(child);
        };
        const tests::ChildRun run = tests::runInChild(commitForEver, killAfter);
        ASSERT_TRUE(run.wasKilled()) << run.report;
        ASSERT_EQ(problemIn(path, progress->acknowledged, progress->begun), "") << "kill " << i;
    }
    EXPECT_GT(progress->acknowledged, kKills);
}

TEST(RecordProcesses, OnlyOneHasTheRecord) {
    const TemporaryDirectory files;
    const std::string path = files.path("record");
    Record record(path);
    const auto problem = [&path] {
        return tests::runInChild([&path] { return problemIn(path, 0, 1); }).report;
    };
    EXPECT_THAT(problem(), AllOf(HasSubstr(path), HasSubstr("another process is using it")));
    commitRevision(record, 1);
    EXPECT_THAT(problem(), HasSubstr("another process is using it"));
    EXPECT_NE(problemIn(path, 0, 1), "") << "this process has it twice";
    EXPECT_THAT(problem(), HasSubstr("another process is using it"));
    record.close();
    EXPECT_EQ(problem(), "");
}

// Leaves a record as a killed host leaves it, with a log beside it.
void leaveRecord(const std::string& path, int64_t revision) {
    const auto body = [&]() -> std::string {
        {
            Record record(path);
            commitRevisions(record, 1, revision / 2);
        }
        // The child ends without the destructor.
        auto* const record = new Record(path);
        commitRevisions(*record, revision / 2 + 1, revision);
        return "";
    };
    ASSERT_EQ(tests::runInChild(body).report, "");
    ASSERT_TRUE(fs::exists(path + "-wal"));
}

// Runs a host's work with a record: opens it, reads it, commits and closes it. The parameter is the
// revision of the record that is there before, or 0 if there is none.
class RecordFaults : public testing::TestWithParam<int64_t> {
  protected:
    RecordFaults() {
        if (GetParam() > 0) {
            leaveRecord(before_.path("record"), GetParam());
        }
    }

    TracedRun run(const Fault& fault) {
        fs::remove_all(work_.path("record"));
        fs::remove_all(work_.path("record-wal"));
        fs::remove_all(work_.path("record-journal"));
        fs::copy(before_.path(), work_.path());
        progress_->begun = progress_->acknowledged = GetParam();
        return tests::runTraced([this] { return work(); }, fault);
    }

    // Fails if a commit is missing or half there.
    void expectKept() {
        EXPECT_EQ(problemIn(path_, progress_->acknowledged, progress_->begun), "");
    }

    // Returns the calls without a fault.
    std::vector<SystemCall> calls() {
        const TracedRun good = run({});
        EXPECT_TRUE(good.hasReturned()) << good.report;
        EXPECT_EQ(good.report, "");
        EXPECT_EQ(progress_->acknowledged, GetParam() + kCommits + 1);
        expectKept();
        return good.calls;
    }

    static constexpr int64_t kCommits = 3;

    const TemporaryDirectory before_;
    const TemporaryDirectory work_;
    const std::string path_ = work_.path("record");
    const SharedProgress progress_;

  private:
    // Returns what failed while the calls were counted, and throws what failed later.
    std::string work() {
        std::string problem;
        tests::beginTrace();
        try {
            Record record(path_);
            progress_->begun = progress_->acknowledged = record.read().revision;
            for (int64_t i = 0; i < kCommits; ++i) {
                progress_.commitNext(record);
            }
            record.close();
        } catch (const RecordError& error) {
            const bool isDamaged = error.kind() == RecordError::Kind::Damaged;
            problem = std::string(isDamaged ? "damaged: " : "failed: ") + error.what();
        } catch (const std::bad_alloc&) {
            problem = "no memory";
        }
        tests::endTrace();
        // The host tries again, in the same process.
        Record record(path_);
        const Record::Contents contents = record.read();
        if (contents.revision != progress_->begun && contents.revision != progress_->acknowledged) {
            throw std::runtime_error("the revision is " + std::to_string(contents.revision));
        }
        const std::string difference = differenceFrom(contents);
        if (!difference.empty()) {
            throw std::runtime_error(difference);
        }
        progress_->acknowledged = contents.revision;
        progress_.commitNext(record);
        record.close();
        return problem;
    }
};

TEST_P(RecordFaults, CommitReturnsWhenTheLogIsFlushed) {
    const std::vector<SystemCall> all = calls();
    int flushes = 0;
    bool isFlushed = true;
    for (const SystemCall& call : all) {
        if (call.file != path_ + "-wal") {
            continue;
        }
        if (call.number == SYS_pwrite64) {
            isFlushed = false;
        } else if (call.number == SYS_fdatasync || call.number == SYS_fsync) {
            flushes += isFlushed ? 0 : 1;
            isFlushed = true;
        }
    }
    EXPECT_TRUE(isFlushed);
    EXPECT_GE(flushes, kCommits);
}

TEST_P(RecordFaults, LogIsWrittenWithOneCallBeforeEachFlush) {
    int flushes = 0;
    int writes = 0;
    for (const SystemCall& call : calls()) {
        if (call.file != path_ + "-wal") {
            continue;
        }
        if (call.number == SYS_pwrite64) {
            ++writes;
        } else if (call.number == SYS_fdatasync || call.number == SYS_fsync) {
            flushes += writes;
            EXPECT_LE(writes, 1);
            writes = 0;
        }
    }
    EXPECT_EQ(writes, 0);
    EXPECT_GE(flushes, kCommits);
}

// A commit that the killed host could not flush would be a hole in the log.
TEST_P(RecordFaults, FoundLogIsInTheFlushedDatabaseBeforeTheFirstCommit) {
    int commits = 0;
    bool isFlushed = GetParam() == 0;
    for (const SystemCall& call : calls()) {
        if (call.file == path_ && (call.number == SYS_fdatasync || call.number == SYS_fsync)) {
            isFlushed = true;
        }
        if (call.file == path_ + "-wal" && call.number == SYS_pwrite64) {
            ++commits;
            EXPECT_TRUE(isFlushed);
        }
    }
    EXPECT_GE(commits, kCommits);
}

TEST_P(RecordFaults, KillAtEachCallLeavesWhatWasAcknowledged) {
    for (int call = 0;; ++call) {
        for (const Fault& fault : {Fault::killBefore(call), Fault::killAfter(call)}) {
            const TracedRun killed = run(fault);
            // The runs differ by a call or two. The last call is that of a run which ends by
            // itself.
            if (!killed.wasKilled()) {
                ASSERT_LE(killed.calls.size(), static_cast<std::size_t>(call)) << killed.report;
                EXPECT_GT(call, 50);
                return;
            }
            SCOPED_TRACE(std::to_string(call) + ' ' + describe(killed.calls.back()));
            expectKept();
        }
        ASSERT_FALSE(HasFailure());
    }
}

TEST_P(RecordFaults, EachCallThatFailsIsSurvived) {
    int failed = 0;
    const std::vector<std::pair<Fault (*)(int, int), int>> kinds{
        {Fault::fail, EIO}, {Fault::fail, ENOSPC}, {Fault::fail, EINTR}, {Fault::failForGood, EIO}};
    for (const auto& [kind, error] : kinds) {
        for (int call = 0;; ++call) {
            const TracedRun broken = run(kind(call, error));
            if (static_cast<int>(broken.calls.size()) <= call) {
                EXPECT_GT(call, 50);
                break;
            }
            SCOPED_TRACE(std::to_string(call) + ' ' +
                         describe(broken.calls[static_cast<std::size_t>(call)]) +
                         (kind == Fault::fail ? ": " : ", for good: ") + std::strerror(error));
            ASSERT_TRUE(broken.hasReturned()) << broken.status << ' ' << broken.report;
            EXPECT_THAT(broken.report, Not(HasSubstr("damaged")));
            failed += broken.report.empty() ? 0 : 1;
            expectKept();
            ASSERT_FALSE(HasFailure());
        }
    }
    EXPECT_GT(failed, 100);
}

TEST_P(RecordFaults, EachShortWriteIsSurvived) {
    int writes = 0;
    for (const SystemCall& call : calls()) {
        if (call.number != SYS_write && call.number != SYS_pwrite64) {
            continue;
        }
        const std::size_t length = call.arguments[2];
        for (const std::size_t shorter : {std::size_t{0}, length / 2}) {
            SCOPED_TRACE(std::to_string(writes) + ' ' + describe(call));
            const TracedRun broken = run(Fault::shorten(writes, shorter));
            ASSERT_TRUE(broken.hasReturned()) << broken.status << ' ' << broken.report;
            EXPECT_THAT(broken.report, Not(HasSubstr("damaged")));
            expectKept();
        }
        ++writes;
    }
    EXPECT_GT(writes, 10);
}

TEST_P(RecordFaults, FileOfADiskThatIsReadOnlyIsRefused) {
    const std::vector<SystemCall> all = calls();
    const auto opens = [this](const SystemCall& call) {
        return call.number == SYS_openat && call.file == path_;
    };
    // The record itself makes the file. SQLite opens it afterwards.
    const auto made = std::find_if(all.begin(), all.end(), opens);
    const auto opened = std::find_if(made + 1, all.end(), opens);
    const TracedRun refused = run(Fault::fail(static_cast<int>(opened - all.begin()), EROFS));
    EXPECT_THAT(refused.report, AllOf(HasSubstr(path_), HasSubstr("may not be written")));
}

INSTANTIATE_TEST_SUITE_P(Each, RecordFaults, testing::Values(0, 20),
                         [](const testing::TestParamInfo<int64_t>& info) {
                             return info.param == 0 ? "NewRecord" : "RecordOfAKilledHost";
                         });

// Runs the function in a child, because the limit applies to the whole process.
std::string reportOf(const std::function<std::string()>& body) {
    const tests::ChildRun run = tests::runInChild(body);
    EXPECT_TRUE(run.hasReturned()) << run.status;
    return run.report;
}

TEST(RecordOnAFullDisk, RefusesACommitAndKeepsTheEarlierOnes) {
    const SharedProgress progress;
    for (std::size_t room = 0; room < 300'000; room += 4999) {
        const TemporaryDirectory files;
        const std::string path = files.path("record");
        progress->begun = progress->acknowledged = 0;
        const auto fill = [&]() -> std::string {
            const tests::LongestFile limit(room);
            try {
                Record record(path);
                for (;;) {
                    progress.commitNext(record);
                }
            } catch (const RecordError& error) {
                const bool isDamaged = error.kind() == RecordError::Kind::Damaged;
                return isDamaged ? "damaged" : error.what();
            }
        };
        EXPECT_THAT(reportOf(fill), AllOf(HasSubstr(path), HasSubstr("File too large")));
        EXPECT_EQ(problemIn(path, progress->acknowledged, progress->begun), "");
        Record record(path);
        progress->acknowledged = record.read().revision;
        progress.commitNext(record);
        EXPECT_EQ(differenceFrom(record.read()), "");
    }
}

// Returns services that fill a block of the database each.
Edits blocks(int32_t first, int32_t count) {
    Edits edits;
    for (int32_t id = first; id < first + count; ++id) {
        edits[id] = std::string(3000, 'x');
    }
    return edits;
}

TEST(RecordOnAFullDisk, CommitWorksAlthoughTheLogCannotMove) {
    const TemporaryDirectory files;
    const std::string path = files.path("record");
    const auto body = [&]() -> std::string {
        Record(path).commit(1, blocks(0, 2000), nullptr);
        Record record(path);
        const std::uintmax_t size = fs::file_size(path);
        {
            // The database must grow to take the services in. The log is shorter.
            const tests::LongestFile limit(size);
            record.commit(2, blocks(2000, 1100), nullptr);
            record.commit(3, {{1, "a"}}, nullptr);
        }
        if (fs::file_size(path) != size) {
            return "the log has moved";
        }
        record.close();
        const Record::Contents contents = Record(path).read();
        return std::to_string(contents.revision) + ": " + std::to_string(contents.services.size());
    };
    EXPECT_EQ(reportOf(body), "3: 3100");
}

TEST(RecordOnAFullDisk, RecordIsClosedAfterACommitThatFailed) {
    const TemporaryDirectory files;
    const std::string path = files.path("record");
    const auto body = [&]() -> std::string {
        Record record(path);
        commitRevision(record, 1);
        try {
            const tests::LongestFile limit(0);
            commitRevision(record, 2);
            return "the commit works";
        } catch (const RecordError&) {
            record.close();
        }
        return "";
    };
    EXPECT_EQ(reportOf(body), "");
    EXPECT_FALSE(fs::exists(path + "-wal"));
    EXPECT_EQ(problemIn(path, 1, 1), "");
}

// The log has room for another commit. But the killed host may have been unable to flush the log.
TEST(RecordOnAFullDisk, RecordIsReadAndNotWrittenUntilTheFoundLogMoves) {
    const TemporaryDirectory files;
    const std::string path = files.path("record");
    const auto leave = [&]() -> std::string {
        Record(path).commit(1, blocks(0, 1000), nullptr);
        // The child ends without the destructor.
        auto* const record = new Record(path);
        record->commit(2, blocks(1000, 100), nullptr);
        return "";
    };
    ASSERT_EQ(reportOf(leave), "");
    const auto body = [&]() -> std::string {
        const tests::LongestFile limit(fs::file_size(path));
        Record record(path);
        if (record.read().services.size() != 1100) {
            return "services are missing";
        }
        try {
            record.commit(3, {{1, "a"}}, nullptr);
        } catch (const RecordError& error) {
            return error.what();
        }
        return "the commit works";
    };
    EXPECT_THAT(reportOf(body), AllOf(testing::StartsWith("cannot write"), HasSubstr(path)));
    Record record(path);
    EXPECT_EQ(record.read().revision, 2);
    record.commit(3, {{1, "a"}}, nullptr);
    EXPECT_EQ(record.read().services.size(), 1100U);
}

}  // namespace
}  // namespace qv::host
