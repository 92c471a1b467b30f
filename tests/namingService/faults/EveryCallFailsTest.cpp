// SPDX-License-Identifier: Apache-2.0

// Makes each system call of every operation fail in turn, once and for good, and cuts every write
// of a save short. Only a lack of memory reaches the host. The directory keeps the registered
// services, no memory is lost, only descriptors that a save gave up stay open, and the next
// registration that changes something saves all.
//
// A save does not repeat its open, seek or write after an interruption. The save is lost then, as
// after any other error.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "ScenarioTest.h"

namespace qv::tests {
namespace {

using testing::AnyOf;
using testing::Eq;

constexpr int kErrors[] = {ENOMEM, EIO, ENOSPC, EACCES, EMFILE, EINTR};
// EINTR is missing, because no call is interrupted for good.
constexpr int kLastingErrors[] = {ENOSPC, EIO, EMFILE};

// Returns whether the call asks for the status of a path, not of an open file.
bool isStat(const SystemCall& call) {
    return call.number == SYS_stat || (call.number == SYS_newfstatat &&
                                       (call.arguments[3] & std::uint64_t{AT_EMPTY_PATH}) == 0);
}

bool canBeInterrupted(const SystemCall& call) {
    switch (call.number) {
        case SYS_openat:
        case SYS_pread64:
        case SYS_read:
        case SYS_write:
            return true;
        default:
            return false;
    }
}

// Returns whether a save may fail without the call. The calls for the backup do not matter.
bool mayPreventSave(const SystemCall& call) {
    const bool isOfBackup = call.file.find("/backup") != std::string::npos;
    return asksForMemory(call) ||
           (!isOfBackup &&
            (call.number == SYS_openat || call.number == SYS_lseek || call.number == SYS_write));
}

// Returns whether the call writes whole blocks of the file. A stream writes whole blocks at once
// and reports their failure. It writes the rest when it is flushed, and the plug-in does not check
// that.
bool isWholeBlocksOf(const std::string& file, const SystemCall& call) {
    constexpr std::uint64_t kBlock = 4096;
    return call.number == SYS_write && call.file == file && call.arguments[2] % kBlock == 0;
}

class EveryCallFails : public ScenarioTest {
  protected:
    // Returns the smallest number of system calls, in any state of memory.
    int fewestCalls() const { return usesFiles() ? 9 : GetParam().writesRecord() ? 1 : 0; }

    // Returns how many descriptors the fault may leave open. A save that cannot read the status of
    // its file opens the file again and does not close the first descriptor. The next save does the
    // same if the fault lasts.
    static int mostGivenUp(const Fault& fault, const SystemCall& call) {
        if (fault.isForGood) {
            return call.number == SYS_stat || call.number == SYS_newfstatat ? 2 : 0;
        }
        return isStat(call) ? 1 : 0;
    }

    // Makes each call fail in turn with each of the errors. A call for memory fails with the first
    // error only.
    template <std::size_t count>
    void sweep(Fault (*fault)(int call, int error), const int (&errors)[count]) {
        int faults = 0;
        int calls = 0;
        for (;; ++calls) {
            for (const int error : errors) {
                const std::optional<SystemCall> call = strike(fault(calls, error));
                if (!call && error == errors[0]) {
                    EXPECT_GE(calls, fewestCalls());
                    record(faults);
                    return;
                }
                ++faults;
                if (!call || asksForMemory(*call)) {
                    break;
                }
            }
            ASSERT_FALSE(HasFailure());
        }
    }

  private:
    // Plays the scenario with the fault and checks it. Returns the call, or nothing if the
    // operation has fewer calls.
    std::optional<SystemCall> strike(const Fault& fault) {
        const TracedRun run = play(fault);
        if (static_cast<int>(run.calls.size()) <= fault.call) {
            return std::nullopt;
        }
        const SystemCall& call = run.calls[static_cast<std::size_t>(fault.call)];
        SCOPED_TRACE(std::to_string(fault.call) + ' ' + describe(call) +
                     (fault.isForGood ? ", for good: " : ": ") + std::strerror(fault.error));
        EXPECT_TRUE(run.hasReturned()) << run.status << ' ' << run.report;
        if (run.hasReturned()) {
            const Report report(run.report);
            checkOutcome(report, asksForMemory(call));
            checkLife(report, mostGivenUp(fault, call));
            checkEffect(report, asksForMemory(call), mayPreventSave(call));
            if (fault.error == EINTR && canBeInterrupted(call)) {
                EXPECT_EQ(report.isLogged, expected_.isLogged);
            }
            if (GetParam().loads() && isWholeBlocksOf(files_.mainFile(), call)) {
                EXPECT_EQ(report.services, "") << "the plug-in loaded half a restore";
            }
        }
        return call;
    }
};

TEST_P(EveryCallFails, AndTheHostContinues) {
    sweep(Fault::fail, kErrors);
}

TEST_P(EveryCallFails, ForGoodAndTheHostContinues) {
    sweep(Fault::failForGood, kLastingErrors);
}

INSTANTIATE_TEST_SUITE_P(Each, EveryCallFails, testing::ValuesIn(scenarios()), nameOf);

// Returns the content of the file after a write() that takes only `length` bytes. The plug-in sets
// the file to the full length, so the rest is the old content or zeros.
std::string shortWrite(const std::string& bytes, std::size_t length, const std::string& before) {
    std::string file = before;
    file.resize(bytes.size(), '\0');
    return file.replace(0, length, bytes, 0, length);
}

using ShortWrites = ScenarioTest;

// The stream that copies files continues after a short write. The write of a save does not.
TEST_P(ShortWrites, LeaveTheOldOrTheNewDirectory) {
    play(Fault::killBefore(0));
    const std::string before = files_.main().value_or("");
    ASSERT_TRUE(play(Fault()).hasReturned());
    const std::string saved = *files_.keptMain();
    int number = 0;
    int lost = 0;
    for (const SystemCall& call : good_.calls) {
        if (call.number != SYS_write) {
            continue;
        }
        const std::size_t length = call.arguments[2];
        const bool isMain = call.file == files_.mainFile();
        for (const std::size_t shorter : {std::size_t{0}, std::size_t{1}, length / 2, length - 1}) {
            SCOPED_TRACE(describe(call) + ": " + std::to_string(shorter));
            const TracedRun run = play(Fault::shorten(number, shorter));
            ASSERT_TRUE(run.hasReturned()) << run.status << ' ' << run.report;
            const Report report(run.report);
            EXPECT_EQ(report.outcome, "0");
            EXPECT_EQ(report.services, expected_.services);
            EXPECT_EQ(files_.keptMain(), isMain ? shortWrite(saved, shorter, before) : saved);
            EXPECT_EQ(report.nextServices, expected_.nextServices);
            EXPECT_EQ(start(), expected_.nextServices);
            const std::string services = startFromKept();
            EXPECT_THAT(services, AnyOf(Eq(isMain ? before_ : after_), Eq(after_)));
            lost += services == after_ ? 0 : 1;
        }
        ++number;
    }
    EXPECT_GE(number, 1);
    RecordProperty("writes", number);
    RecordProperty("lost", lost);
}

INSTANTIATE_TEST_SUITE_P(Each, ShortWrites, testing::ValuesIn(saves()), nameOf);

}  // namespace
}  // namespace qv::tests
