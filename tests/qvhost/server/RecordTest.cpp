// SPDX-License-Identifier: Apache-2.0

#include "server/Record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/FileModes.h"
#include "support/Files.h"
#include "support/OtherUser.h"
#include "support/SpecialFiles.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using tests::contentOf;
using tests::TemporaryDirectory;
using tests::writeFile;
using Kind = RecordError::Kind;

auto service(int32_t id, const std::string& address) {
    return AllOf(testing::Field(&Service::id, id), testing::Field(&Service::address, address));
}

struct Problem {
    std::optional<Kind> kind;  // nothing if the action succeeded
    std::string text;
};

Problem problemOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const RecordError& error) {
        return {error.kind(), error.what()};
    }
    return {};
}

// Opens the record and reads everything.
Problem problemOf(const std::string& path) {
    return problemOf([&] { Record(path).read(); });
}

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

void execute(const std::string& path, const std::string& sql) {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &handle), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(handle);
    sqlite3_close(handle);
}

TEST(Record, NewRecordIsEmpty) {
    const TemporaryDirectory files;
    Record record(files.path("record"));
    const Record::Contents contents = record.read();
    EXPECT_EQ(contents.revision, 0);
    EXPECT_EQ(contents.epoch, 0U);
    EXPECT_THAT(contents.services, IsEmpty());
    EXPECT_EQ(contents.file.revision, 0);
    EXPECT_EQ(contents.file.fingerprint, 0U);
    EXPECT_FALSE(contents.file.isBeingWritten);
    EXPECT_EQ(contents.file.otherKeys, "");
}

TEST(Record, NextRecordReadsWhatWasCommitted) {
    constexpr int32_t kLeast = std::numeric_limits<int32_t>::min();
    constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
    const std::string anyBytes("\xff\0'\n\xef\xbb\xbf", 7);
    const TemporaryDirectory files;
    FileNote note;
    note.revision = 3;
    note.fingerprint = std::numeric_limits<uint64_t>::max();
    note.isBeingWritten = true;
    note.otherKeys = std::string(100'000, 'k') + anyBytes;
    {
        Record record(files.path("record"));
        record.commit(1, {{kMost, "a"}, {-1, ""}, {2, "b"}, {3, "c"}}, nullptr);
        record.commit(5, {{2, std::nullopt}, {3, "d"}, {kLeast, anyBytes}}, &note);
        EXPECT_THAT(record.read().services, ElementsAre(service(kLeast, anyBytes), service(-1, ""),
                                                        service(3, "d"), service(kMost, "a")));
        record.close();
    }
    Record record(files.path("record"));
    const Record::Contents contents = record.read();
    EXPECT_EQ(contents.revision, 5);
    EXPECT_THAT(contents.services, ElementsAre(service(kLeast, anyBytes), service(-1, ""),
                                               service(3, "d"), service(kMost, "a")));
    EXPECT_EQ(contents.file.revision, 3);
    EXPECT_EQ(contents.file.fingerprint, note.fingerprint);
    EXPECT_TRUE(contents.file.isBeingWritten);
    EXPECT_EQ(contents.file.otherKeys, note.otherKeys);
}

TEST(Record, CommitWithoutNoteLeavesTheNote) {
    const TemporaryDirectory files;
    Record record(files.path("record"));
    FileNote note;
    note.revision = 1;
    note.fingerprint = 7;
    note.otherKeys = "keys";
    record.commit(1, {}, &note);
    record.commit(2, {{1, "a"}}, nullptr);
    const Record::Contents contents = record.read();
    EXPECT_EQ(contents.revision, 2);
    EXPECT_EQ(contents.file.revision, 1);
    EXPECT_EQ(contents.file.fingerprint, 7U);
    EXPECT_EQ(contents.file.otherKeys, "keys");
}

TEST(Record, EpochIsThatOfTheLastCommit) {
    constexpr uint64_t kEpoch = std::numeric_limits<uint64_t>::max() - 1;
    const TemporaryDirectory files;
    Record(files.path("record"), 5).commit(1, {{1, "a"}}, nullptr);
    EXPECT_EQ(Record(files.path("record"), kEpoch).read().epoch, 5U);
    const FileNote note;
    for (const FileNote* const each : {static_cast<const FileNote*>(nullptr), &note}) {
        Record(files.path("record"), kEpoch).commit(1, {}, each);
        EXPECT_EQ(Record(files.path("record")).read().epoch, kEpoch);
        Record(files.path("record")).commit(1, {}, each);
        EXPECT_EQ(Record(files.path("record")).read().epoch, 0U);
    }
}

TEST(Record, LargeDirectoryIsReadInOrder) {
    constexpr int32_t kCount = 100'000;
    const TemporaryDirectory files;
    Edits edits;
    for (int32_t id = 0; id < kCount; ++id) {
        edits[(id * 7919) % kCount] = "tcp://127.0.0.1:" + std::to_string(id);
    }
    {
        Record record(files.path("record"));
        record.commit(1, edits, nullptr);
    }
    const std::vector<Service> services = Record(files.path("record")).read().services;
    ASSERT_EQ(services.size(), edits.size());
    EXPECT_TRUE(std::equal(services.begin(), services.end(), edits.begin(),
                           [](const Service& found, const auto& edit) {
                               return found.id == edit.first && found.address == edit.second;
                           }));
}

// The first commit of a host writes the epoch, the others only the block of the service.
TEST(Record, OneChangeWritesOneBlockAndUnchangedKeysNone) {
    constexpr std::uintmax_t kHeader = 32;
    constexpr std::uintmax_t kBlock = 1024 + 24;
    const TemporaryDirectory files;
    FileNote note;
    note.otherKeys = std::string(1'000'000, 'k');
    {
        Record record(files.path("record"));
        record.commit(1, {{1, "a"}}, &note);
    }
    Record record(files.path("record"));
    record.commit(2, {{1, "b"}}, nullptr);
    EXPECT_EQ(fs::file_size(files.path("record-wal")), kHeader + 2 * kBlock);
    record.commit(3, {{1, "c"}}, nullptr);
    EXPECT_EQ(fs::file_size(files.path("record-wal")), kHeader + 3 * kBlock);
    note.isBeingWritten = true;
    record.commit(4, {}, &note);
    EXPECT_EQ(fs::file_size(files.path("record-wal")), kHeader + 4 * kBlock);
}

TEST(Record, RevisionIsThatOfTheLastCommitWhateverItChanged) {
    const TemporaryDirectory files;
    const std::string path = files.path("record");
    const auto kept = [&path] { return Record(path).read().revision; };
    // Each record commits several times, because the first commit also writes the epoch.
    {
        Record record(path);
        record.commit(1, {{1, "a"}, {2, "b"}}, nullptr);
        record.commit(2, {{1, "c"}}, nullptr);
    }
    EXPECT_EQ(kept(), 2);
    {
        Record record(path);
        record.commit(3, {{2, "d"}}, nullptr);
        record.commit(4, {{2, std::nullopt}}, nullptr);
    }
    EXPECT_EQ(kept(), 4);
    {
        Record record(path);
        record.commit(5, {{2, "e"}}, nullptr);
        record.commit(6, {{1, std::nullopt}, {2, "f"}}, nullptr);
    }
    EXPECT_EQ(kept(), 6);
    {
        Record record(path);
        record.commit(7, {{2, "g"}}, nullptr);
        record.commit(8, {}, nullptr);
    }
    EXPECT_EQ(kept(), 8);
}

TEST(Record, LogIsUsedAgain) {
    const TemporaryDirectory files;
    Record record(files.path("record"));
    int64_t revision = 0;
    const auto commitOften = [&record, &revision] {
        for (int i = 0; i < 2000; ++i) {
            ++revision;
            record.commit(revision, {{i % 100, std::to_string(revision)}}, nullptr);
        }
    };
    commitOften();
    const std::uintmax_t size = fs::file_size(files.path("record-wal"));
    commitOften();
    EXPECT_EQ(fs::file_size(files.path("record-wal")), size);
    EXPECT_EQ(record.read().revision, 4000);
}

TEST(Record, OneFileIsLeftAtTheEnd) {
    const TemporaryDirectory files;
    const auto commit = [&files](bool closes) {
        Record record(files.path("record"));
        record.commit(1, {{1, "a"}}, nullptr);
        EXPECT_THAT(namesIn(files.path()), UnorderedElementsAre("record", "record-wal"));
        if (closes) {
            record.close();
        }
    };
    commit(true);
    EXPECT_THAT(namesIn(files.path()), ElementsAre("record"));
    commit(false);
    EXPECT_THAT(namesIn(files.path()), ElementsAre("record"));
    EXPECT_THAT(tests::descriptorsBelow(files.path()), IsEmpty());
}

TEST(Record, ModeDoesNotDependOnTheUmask) {
    for (const mode_t mask : {0000, 0077, 0777}) {
        const TemporaryDirectory files;
        const tests::UmaskGuard guard(mask);
        Record record(files.path("record"));
        record.commit(1, {{1, "a"}}, nullptr);
        EXPECT_EQ(tests::modeOf(files.path("record")), 0600U);
        EXPECT_EQ(tests::modeOf(files.path("record-wal")), 0600U);
    }
}

TEST(Record, ModeOfARecordThatWasCopiedIsSetRight) {
    const TemporaryDirectory files;
    Record(files.path("record")).commit(1, {{1, "a"}}, nullptr);
    fs::permissions(files.path("record"), fs::perms(0644));
    EXPECT_EQ(Record(files.path("record")).read().revision, 1);
    EXPECT_EQ(tests::modeOf(files.path("record")), 0600U);
}

TEST(Record, LinkIsRefused) {
    const TemporaryDirectory files;
    Record(files.path("target")).commit(1, {{1, "a"}}, nullptr);
    for (const std::string target : {"target", "nothing"}) {
        fs::create_symlink(files.path(target), files.path("record"));
        const Problem problem = problemOf(files.path("record"));
        EXPECT_EQ(problem.kind, Kind::Failed);
        EXPECT_THAT(problem.text,
                    AllOf(HasSubstr(files.path("record")), HasSubstr("regular file")));
        EXPECT_FALSE(fs::exists(files.path("nothing")));
        fs::remove(files.path("record"));
    }
}

TEST(Record, LogThatIsALinkIsRefused) {
    const TemporaryDirectory files;
    Record(files.path("record")).commit(1, {{1, "a"}}, nullptr);
    writeFile(files.path("target"), "content");
    fs::create_symlink(files.path("target"), files.path("record-wal"));
    EXPECT_EQ(problemOf(files.path("record")).kind, Kind::Failed);
    EXPECT_EQ(contentOf(files.path("target")), "content");
}

TEST(Record, LinkInTheDirectoryIsFollowed) {
    const TemporaryDirectory files;
    fs::create_directory(files.path("real"));
    fs::create_directory_symlink(files.path("real"), files.path("link"));
    Record(files.path("link/record")).commit(1, {{1, "a"}}, nullptr);
    EXPECT_EQ(Record(files.path("real/record")).read().revision, 1);
}

TEST(Record, OtherThingsInItsPlaceAreRefused) {
    const TemporaryDirectory files;
    fs::create_directory(files.path("directory"));
    tests::makePipe(files.path("pipe"));
    for (const std::string name : {"directory", "pipe"}) {
        const Problem problem = problemOf(files.path(name));
        EXPECT_EQ(problem.kind, Kind::Failed);
        EXPECT_THAT(problem.text, AllOf(HasSubstr(files.path(name)), HasSubstr("regular file")));
    }
}

TEST(Record, MissingDirectoryIsNamed) {
    const TemporaryDirectory files;
    const Problem problem = problemOf(files.path("none/record"));
    EXPECT_EQ(problem.kind, Kind::Failed);
    EXPECT_THAT(problem.text, AllOf(HasSubstr(files.path("none/record")),
                                    HasSubstr("No such file or directory")));
}

TEST(Record, DirectoryThatMayNotBeWrittenIsRefused) {
    const TemporaryDirectory files;
    Record(files.path("old")).commit(1, {{1, "a"}}, nullptr);
    tests::asOrdinaryUser(files.path(), [&files] {
        ASSERT_EQ(::chmod(files.path().c_str(), 0500), 0);
        for (const std::string name : {"old", "new"}) {
            const Problem problem = problemOf(files.path(name));
            EXPECT_EQ(problem.kind, Kind::Failed);
            EXPECT_THAT(problem.text, AllOf(HasSubstr(files.path(name)),
                                            testing::AnyOf(HasSubstr("Permission denied"),
                                                           HasSubstr("may not be written"))));
        }
    });
}

TEST(Record, RemovedOrReplacedFilesAreNoticed) {
    const TemporaryDirectory files;
    const std::string path = files.path("record");
    for (const std::string name : {"record", "record-wal"}) {
        Record record(path);
        record.commit(1, {{1, "a"}}, nullptr);
        fs::remove(files.path(name));
        for (const bool isReplaced : {false, true}) {
            if (isReplaced) {
                writeFile(files.path(name), "");
            }
            const Problem problem = problemOf([&] { record.commit(2, {{1, "b"}}, nullptr); });
            EXPECT_EQ(problem.kind, Kind::Failed);
            EXPECT_THAT(problem.text, HasSubstr(files.path(name)));
        }
    }
}

// The next record takes everything again. So it must not find a log that belongs to other files.
TEST(Record, RecordAfterARemovedOneWorks) {
    const TemporaryDirectory files;
    const std::string path = files.path("record");
    for (const std::string name : {"record", "record-wal"}) {
        {
            Record record(path);
            record.commit(1, {{1, "a"}}, nullptr);
            fs::remove(files.path(name));
            EXPECT_TRUE(problemOf([&] { record.commit(2, {{1, "b"}}, nullptr); }).kind);
            record.close();
        }
        Record record(path);
        record.commit(3, {{1, "c"}}, nullptr);
        EXPECT_THAT(record.read().services, ElementsAre(service(1, "c")));
        fs::remove(path);
    }
}

TEST(Record, RecordThatIsReplacedWhileItIsOpenIsNotMixed) {
    const TemporaryDirectory files;
    const std::string path = files.path("record");
    Record(files.path("backup")).commit(1, {{1, "backup"}}, nullptr);
    {
        Record record(path);
        record.commit(1, {{1, "a"}, {2, "b"}}, nullptr);
        fs::rename(files.path("backup"), path);
        EXPECT_TRUE(problemOf([&] { record.commit(2, {{1, "c"}}, nullptr); }).kind);
    }
    EXPECT_THAT(Record(path).read().services, ElementsAre(service(1, "backup")));
}

// Returns the bytes of a record with many services.
std::string largeRecord(const TemporaryDirectory& files) {
    Edits edits;
    for (int32_t id = 0; id < 2000; ++id) {
        edits[id] = "tcp://127.0.0.1:" + std::to_string(id);
    }
    Record(files.path("record")).commit(1, edits, nullptr);
    return contentOf(files.path("record")).value();
}

TEST(Record, FileThatIsNoDatabaseIsDamaged) {
    const TemporaryDirectory files;
    for (const std::size_t size : {2U, 100U, 4096U, 100'000U}) {
        for (const char byte : {'\0', 'x'}) {
            writeFile(files.path("record"), std::string(size, byte));
            const Problem problem = problemOf(files.path("record"));
            EXPECT_EQ(problem.kind, Kind::Damaged) << size;
            EXPECT_THAT(problem.text, HasSubstr(files.path("record")));
            EXPECT_TRUE(contentOf(files.path("record")) == std::string(size, byte));
        }
    }
}

// Swaps the bytes of two blocks that hold services.
TEST(Record, BlocksInTheWrongOrderAreDamage) {
    constexpr std::size_t kBlock = 4096;
    const TemporaryDirectory files;
    std::string bytes = largeRecord(files);
    const std::size_t one = bytes.size() - 3 * kBlock;
    const std::size_t other = bytes.size() - 2 * kBlock;
    std::swap_ranges(bytes.begin() + static_cast<std::ptrdiff_t>(one),
                     bytes.begin() + static_cast<std::ptrdiff_t>(one + kBlock),
                     bytes.begin() + static_cast<std::ptrdiff_t>(other));
    writeFile(files.path("record"), bytes);
    EXPECT_EQ(problemOf(files.path("record")).kind, Kind::Damaged);
}

TEST(Record, EmptyFileIsANewRecord) {
    const TemporaryDirectory files;
    writeFile(files.path("record"), "");
    EXPECT_EQ(Record(files.path("record")).read().revision, 0);
}

// SQLite takes a file of one byte for an empty one.
TEST(Record, TruncatedFileIsDamaged) {
    const TemporaryDirectory files;
    const std::string whole = largeRecord(files);
    for (std::size_t size = 2; size < whole.size(); size += 1021) {
        writeFile(files.path("record"), whole.substr(0, size));
        EXPECT_EQ(problemOf(files.path("record")).kind, Kind::Damaged) << size;
    }
}

TEST(Record, BlockOfOtherBytesIsDamage) {
    constexpr std::size_t kBlock = 4096;
    const TemporaryDirectory files;
    const std::string whole = largeRecord(files);
    for (std::size_t offset = 0; offset < whole.size(); offset += kBlock) {
        for (const char byte : {'\0', 'x', '\xff'}) {
            std::string damaged = whole;
            damaged.replace(offset, kBlock, kBlock, byte);
            writeFile(files.path("record"), damaged);
            EXPECT_EQ(problemOf(files.path("record")).kind, Kind::Damaged) << offset;
        }
    }
}

// A host that set a record aside as damaged would lose what somebody else can read.
TEST(Record, DatabasesThatItDoesNotKnowAreRefusedAndLeft) {
    const TemporaryDirectory files;
    const std::string path = files.path("record");
    const auto refusal = [&path](const std::string& sql) {
        execute(path, sql);
        const std::optional<std::string> before = contentOf(path);
        const Problem problem = problemOf(path);
        EXPECT_EQ(problem.kind, Kind::Failed);
        EXPECT_TRUE(contentOf(path) == before);
        return problem.text;
    };
    Record(path).commit(1, {{1, "a"}}, nullptr);
    EXPECT_THAT(refusal("PRAGMA user_version=2"),
                HasSubstr("a newer qvhost wrote it, in format 2"));
    EXPECT_THAT(refusal("PRAGMA application_id=2"), HasSubstr("another program"));
    fs::remove(path);
    EXPECT_THAT(refusal("CREATE TABLE a(b)"), HasSubstr("another program"));
}

TEST(Record, ValuesThatCannotBeAreDamage) {
    const TemporaryDirectory files;
    const std::string path = files.path("record");
    for (const std::string sql :
         {"DELETE FROM state", "DELETE FROM otherKeys", "DROP TABLE services", "DROP TABLE state",
          "UPDATE state SET revision = 'x'", "UPDATE state SET revision = -1",
          "UPDATE otherKeys SET bytes = 'x'", "INSERT INTO services VALUES (2, 1, 'text')",
          "INSERT INTO services VALUES (1 << 31, 1, x'61')", "UPDATE services SET revision = 'x'",
          "PRAGMA user_version = 0"}) {
        Record(path).commit(1, {{1, "a"}}, nullptr);
        execute(path, sql);
        EXPECT_EQ(problemOf(path).kind, Kind::Damaged) << sql;
        fs::remove(path);
    }
}

}  // namespace
}  // namespace qv::host
