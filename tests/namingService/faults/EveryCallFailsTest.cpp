// Every system call of a start and of a save fails in turn, and every write of a save is cut short.
// The host is told of nothing but a want of memory; its directory keeps what was registered, no
// file stays open that should not, and the next registration saves all.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstring>
#include <iterator>

#include "ScenarioTest.h"

namespace qv::tests {
namespace {

using testing::AnyOf;
using testing::Eq;

constexpr int kErrors[] = {EIO, ENOSPC, EACCES, EMFILE, EINTR, ENOMEM};
constexpr char kNext[] = "1000=unix:/run/next";

// Of a path, not of an open file.
bool isStat(const SystemCall& call) {
    return call.number == SYS_stat || (call.number == SYS_newfstatat &&
                                       (call.arguments[3] & std::uint64_t{AT_EMPTY_PATH}) == 0);
}

// Whether a save is for nothing without the call. Those for the backup do not count.
bool mayPreventSave(const SystemCall& call) {
    const bool isOfBackup = call.file.find("/backup") != std::string::npos;
    return asksForMemory(call) ||
           (!isOfBackup &&
            (call.number == SYS_openat || call.number == SYS_lseek || call.number == SYS_write));
}

// A stream passes whole blocks on at once, and so tells that they were not written. What is left
// goes when it is flushed, of which nobody asks what came.
bool isWholeBlocksOf(const std::string& file, const SystemCall& call) {
    constexpr std::uint64_t kBlock = 4096;
    return call.number == SYS_write && call.file == file && call.arguments[2] % kBlock == 0;
}

class EveryCallFails : public ScenarioTest {
  protected:
    void check(const Report& report, const SystemCall& call) {
        if (report.outcome != "0") {
            EXPECT_EQ(report.outcome, "bad_alloc");
            EXPECT_TRUE(asksForMemory(call));
            ++badAllocs_;
        }
        EXPECT_EQ(report.nextOutcome, "0");
        EXPECT_LE(openBesides(report), isStat(call) ? 1 : 0);
        if (GetParam().isStart()) {
            checkStart(report, call);
        } else {
            checkSave(report, call);
        }
    }

  private:
    // What a start may come to when it cannot read a file that it could. A good file is taken for a
    // damaged one, and its backup in its place; without a good file nothing is left.
    std::string otherStart() const {
        if (!GetParam().isStart()) {
            return {};
        }
        files_.put(GetParam().main, std::nullopt);
        if (start().empty()) {
            return {};
        }
        files_.put(std::nullopt, GetParam().backup);
        return start();
    }

    void checkStart(const Report& report, const SystemCall& call) {
        EXPECT_THAT(report.services, AnyOf(Eq(after_), Eq(other_)));
        if (isWholeBlocksOf(files_.mainFile(), call)) {
            EXPECT_EQ(report.services, "") << "half a restore is none";
        }
        otherStarts_ += report.services == after_ ? 0 : 1;
        if (report.services.empty()) {
            ++emptyStarts_;
            // Nothing is saved any more in this host's life. The next one has all.
            EXPECT_EQ(report.nextServices, kNext);
            EXPECT_EQ(startFromKept(), after_);
            EXPECT_EQ(start(), after_);
        } else {
            EXPECT_EQ(report.nextServices, report.services + ' ' + kNext);
            EXPECT_EQ(startFromKept(), report.services);
            EXPECT_EQ(start(), report.nextServices);
        }
    }

    void checkSave(const Report& report, const SystemCall& call) const {
        if (report.outcome == "0") {
            EXPECT_EQ(report.services, expected_.services);
            EXPECT_EQ(report.nextServices, expected_.nextServices);
        } else {
            EXPECT_THAT(report.services, AnyOf(Eq(before_), Eq(expected_.services)));
        }
        const bool isGone = !files_.keptMain();
        EXPECT_THAT(startFromKept(),
                    AnyOf(Eq(mayPreventSave(call) ? before_ : after_), Eq(after_)));
        if (isGone) {
            // The file had been removed and could not be made anew. This host does not try again.
            EXPECT_EQ(call.number, SYS_openat);
            EXPECT_EQ(start(), before_);
        } else {
            EXPECT_EQ(start(), report.nextServices);
        }
    }

    // How many files are open at the end that are not without the fault. It may be the one that a
    // save has given up because it could not see that it was still the right one.
    int openBesides(const Report& report) const {
        int count = 0;
        for (const auto& [name, times] : report.openFiles) {
            const auto usual = expected_.openFiles.find(name);
            const int besides = times - (usual == expected_.openFiles.end() ? 0 : usual->second);
            if (besides > 0) {
                EXPECT_EQ(name, files_.mainFile());
                count += besides;
            }
        }
        return count;
    }

    const std::string other_ = otherStart();

  protected:
    int otherStarts_ = 0;
    int emptyStarts_ = 0;
    int badAllocs_ = 0;
};

TEST_P(EveryCallFails, AndTheHostGoesOn) {
    int faults = 0;
    // Until there is no further call that could fail. How many there are depends on the memory that
    // the process has at hand.
    for (int number = 0; faults == number * static_cast<int>(std::size(kErrors)); ++number) {
        for (const int error : kErrors) {
            const TracedRun run = play(Fault::fail(number, error));
            if (static_cast<int>(run.calls.size()) <= number) {
                break;
            }
            ++faults;
            const SystemCall& call = run.calls[static_cast<std::size_t>(number)];
            SCOPED_TRACE(std::to_string(number) + ' ' + describe(call) + ": " +
                         std::strerror(error));
            ASSERT_TRUE(run.hasReturned()) << run.status << ' ' << run.report;
            check(Report(run.report), call);
        }
    }
    EXPECT_GE(faults, 9 * static_cast<int>(std::size(kErrors)));
    RecordProperty("faults", faults);
    RecordProperty("otherStarts", otherStarts_);
    RecordProperty("emptyStarts", emptyStarts_);
    RecordProperty("badAllocs", badAllocs_);
}

INSTANTIATE_TEST_SUITE_P(Each, EveryCallFails, testing::ValuesIn(scenarios()), nameOf);

// What the scenario leaves in the file where write() takes only so many bytes: the rest is what was
// there before, or nothing, to the length of what was to be written.
std::string shortWrite(const std::string& bytes, std::size_t length, const std::string& before) {
    std::string file = before;
    file.resize(bytes.size(), '\0');
    return file.replace(0, length, bytes, 0, length);
}

using ShortWrites = ScenarioTest;

// The stream that copies files goes on where a write left off; the write of a save does not.
TEST_P(ShortWrites, LeaveOneOfTheTwoDirectories) {
    play(Fault::killBefore(0));
    const std::string before = files_.main().value_or("");
    ASSERT_TRUE(play({}).hasReturned());
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
            const std::string services = startFromKept();
            EXPECT_THAT(services, AnyOf(Eq(isMain ? before_ : after_), Eq(after_)));
            lost += services == after_ ? 0 : 1;
            EXPECT_EQ(report.nextServices, expected_.nextServices);
            EXPECT_EQ(start(), expected_.nextServices);
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
