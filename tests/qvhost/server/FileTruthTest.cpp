// SPDX-License-Identifier: Apache-2.0

// Decides whether a file or the record counts.
#include <gtest/gtest.h>

#include <string>

#include "server/StoredFile.h"

namespace qv::host {
namespace {

using State = FileView::State;

TEST(Fingerprint, DependsOnEveryByteAndIsTheSameEverywhere) {
    EXPECT_EQ(fingerprintOf(""), 0xcbf29ce484222325U);
    EXPECT_EQ(fingerprintOf("a"), 0xaf63dc4c8601ec8cU);
    EXPECT_EQ(fingerprintOf("foobar"), 0x85944171f73967e8U);
    EXPECT_NE(fingerprintOf(std::string("a\0", 2)), fingerprintOf("a"));
    EXPECT_NE(fingerprintOf("ab"), fingerprintOf("ba"));
    EXPECT_NE(fingerprintOf("\x80"), fingerprintOf("\xff"));
}

// What the record knows, and what is there.
class TruthTest : public testing::Test {
  protected:
    TruthTest() {
        view_.state = State::Whole;
        view_.isDirectory = true;
        view_.fingerprint = 2;
        note_.fingerprint = 1;
        note_.revision = 7;
    }

    FileView view_;
    FileNote note_;
};

TEST_F(TruthTest, EditedFileCounts) {
    EXPECT_EQ(truthOf(view_, note_, 7), Truth::File);
    EXPECT_EQ(truthOf(view_, note_, 6), Truth::File);
}

TEST_F(TruthTest, FileThatIsAsItWasDoesNotCount) {
    note_.fingerprint = 2;
    EXPECT_EQ(truthOf(view_, note_, 7), Truth::Record);
}

TEST_F(TruthTest, FileThatLagsBehindTheRecordDoesNotCount) {
    EXPECT_EQ(truthOf(view_, note_, 8), Truth::Record);
}

TEST_F(TruthTest, FileThatWasBeingWrittenDoesNotCount) {
    note_.isBeingWritten = true;
    EXPECT_EQ(truthOf(view_, note_, 7), Truth::Record);
}

TEST_F(TruthTest, FileThatIsNoDirectoryDoesNotCount) {
    view_.isDirectory = false;
    EXPECT_EQ(truthOf(view_, note_, 7), Truth::Record);
}

TEST_F(TruthTest, OnlyAWholeFileCounts) {
    for (const State state : {State::Missing, State::Damaged, State::Unusable}) {
        view_.state = state;
        EXPECT_EQ(truthOf(view_, note_, 7), Truth::Record);
    }
}

}  // namespace
}  // namespace qv::host
