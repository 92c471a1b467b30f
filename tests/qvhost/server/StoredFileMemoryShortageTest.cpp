// SPDX-License-Identifier: Apache-2.0

// Makes each allocation of reading and writing the file fail in turn.
#include <gtest/gtest.h>

#include <string>

#include "qvhost/TestFiles.h"
#include "server/StoredFile.h"
#include "support/ConfigurationDocuments.h"
#include "support/MemoryShortage.h"

namespace qv::host {
namespace {

const std::string longStoredAddress(300, 'x');
constexpr char kOtherKey[] = "\t<key>Zone</key>\n\t<string>x</string>\n";

TEST(StoredFileShortage, WholeFileIsNeverTakenForADamagedOne) {
    const TestFiles files;
    // The layer keeps ASCII strings in one form and other strings in another.
    const StoredFile file(files.write(
        "file",
        tests::document(tests::entryOf({{1, "a"}, {3, "\xc3\xa9"}, {70'000, longStoredAddress}}) +
                        kOtherKey)));
    const FileView expected = file.look();
    ASSERT_TRUE(expected.isDirectory);
    const int allocations = tests::sweepShortages([&](tests::Shortage& shortage) {
        FileView view;
        if (!shortage.during([&] { view = file.look(); })) {
            return;
        }
        EXPECT_EQ(view.state, FileView::State::Whole);
        EXPECT_EQ(view.fingerprint, expected.fingerprint);
        EXPECT_TRUE(view.isDirectory);
        EXPECT_EQ(view.otherKeys, expected.otherKeys);
        ASSERT_EQ(view.services.size(), 3U);
        EXPECT_EQ(view.services[1].address, "\xc3\xa9");
        EXPECT_EQ(view.services[2].address, longStoredAddress);
    });
    EXPECT_GE(allocations, 10);
}

TEST(StoredFileShortage, FileIsWrittenWholeOrNotAtAll) {
    const TestFiles files;
    const std::string old = tests::documentOf({{1, "a"}});
    const StoredFile file(files.write("file", old));
    const Snapshot snapshot(1, {{2, "b"}, {70'000, longStoredAddress}});
    const std::string keys = tests::document(kOtherKey);
    const std::string written =
        tests::document(tests::entryOf({{2, "b"}, {70'000, longStoredAddress}}) + kOtherKey);
    const int allocations = tests::sweepShortages([&](tests::Shortage& shortage) {
        const bool isWritten = shortage.during([&] { file.write(snapshot, keys); });
        // Only the flush of the directory may fail after the file is in its place.
        const std::string content = readFile(file.path());
        EXPECT_TRUE(content == written || (!isWritten && content == old));
        files.write("file", old);
    });
    EXPECT_GE(allocations, 10);
}

}  // namespace
}  // namespace qv::host
