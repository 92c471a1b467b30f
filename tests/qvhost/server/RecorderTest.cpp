// SPDX-License-Identifier: Apache-2.0

#include "server/Recorder.h"

#include <QvFrame.h>
#include <QvHost.pb.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qvhost/TestFiles.h"
#include "server/DirectoryReader.h"
#include "support/LongestFile.h"

namespace qv::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

class Batch : public ChangeBatch {
  public:
    Batch& put(int32_t id, const std::string& address) { return add({true, {{id, address}}}); }
    Batch& remove(int32_t id) { return add({false, {{id, ""}}}); }
    Batch& add(Change change) {
        items.emplace_back();
        items.back().change = std::move(change);
        return *this;
    }
    void answered(AnsweredClients& /*clients*/) noexcept override { promise_.set_value(); }

    // Waits for the answers and returns their codes.
    std::vector<uint32_t> codes() {
        promise_.get_future().wait();
        std::vector<uint32_t> codes;
        for (const Item& item : items) {
            codes.push_back(item.outcome.code);
        }
        return codes;
    }

  private:
    std::promise<void> promise_;
};

class RecorderTest : public testing::Test {
  protected:
    Recorder& open() {
        recorder_.reset();
        recorder_ = std::make_unique<Recorder>(path_, [this](const std::string& line) {
            const std::lock_guard<std::mutex> lock(mutex_);
            lines_.push_back(line);
        });
        recorder_->onPublished([this] { published_.notify_all(); });
        recorder_->start();
        return *recorder_;
    }

    std::vector<uint32_t> submit(const std::shared_ptr<Batch>& batch) const {
        recorder_->submit(batch);
        return batch->codes();
    }
    std::vector<uint32_t> put(int32_t id, const std::string& address) const {
        const auto batch = std::make_shared<Batch>();
        batch->put(id, address);
        return submit(batch);
    }

    void waitUntilKept() {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!recorder_->state()->isKept) {
            published_.wait_for(lock, std::chrono::milliseconds(10));
        }
    }

    static std::vector<std::pair<int32_t, std::string>> contents(const Snapshot& snapshot) {
        std::vector<std::pair<int32_t, std::string>> services;
        snapshot.forEach(
            [&](ServiceView service) { services.emplace_back(service.id, service.address); });
        return services;
    }
    auto contents() const { return contents(*recorder_->state()->snapshot); }

    // Returns the revisions of the events that follow, or -1 if they are gone.
    std::vector<int64_t> revisionsAfter(int64_t revision) const;

    std::vector<std::string> lines() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }

    TestFiles files_;
    std::string path_ = files_.path("record");
    std::mutex mutex_;
    std::condition_variable published_;
    std::vector<std::string> lines_;
    // Goes first, because it reports until then.
    std::unique_ptr<Recorder> recorder_;
};

TEST_F(RecorderTest, BeginsEmptyAndWithoutARecord) {
    const Recorder& recorder = open();
    EXPECT_FALSE(recorder.hasRecord());
    EXPECT_TRUE(recorder.state()->snapshot->empty());
    EXPECT_TRUE(recorder.state()->isKept);
}

TEST_F(RecorderTest, AnsweredChangesArePublishedAndOutliveTheRecorder) {
    open();
    const auto batch = std::make_shared<Batch>();
    batch->put(7, "/a").put(8, "/b").put(7, "/c").remove(8).put(-1, "/d");
    EXPECT_EQ(submit(batch), std::vector<uint32_t>(5, QV_OK));
    EXPECT_THAT(contents(), ElementsAre(Pair(-1, "/d"), Pair(7, "/c")));
    EXPECT_EQ(recorder_->state()->snapshot->revision(), 1);
    open();
    EXPECT_TRUE(recorder_->hasRecord());
    EXPECT_THAT(contents(), ElementsAre(Pair(-1, "/d"), Pair(7, "/c")));
    EXPECT_EQ(recorder_->state()->snapshot->revision(), 1);
}

TEST_F(RecorderTest, ReaderSeesEachStateThatIsPublished) {
    open();
    DirectoryReader directory;
    EXPECT_TRUE(directory.newest(*recorder_).snapshot->empty());
    put(7, "/a");
    EXPECT_THAT(contents(*directory.newest(*recorder_).snapshot), ElementsAre(Pair(7, "/a")));
    directory.release();
    EXPECT_THAT(contents(*directory.newest(*recorder_).snapshot), ElementsAre(Pair(7, "/a")));
}

TEST_F(RecorderTest, ChangeThatChangesNothingMakesNoRevision) {
    open();
    put(7, "/a");
    EXPECT_THAT(put(7, "/a"), ElementsAre(QV_OK));
    EXPECT_EQ(recorder_->state()->snapshot->revision(), 1);
}

TEST_F(RecorderTest, DecidedItemKeepsItsAnswerAndChangesNothing) {
    open();
    const auto batch = std::make_shared<Batch>();
    batch->put(7, "/a").put(8, "/b");
    batch->items.front().isDecided = true;
    batch->items.front().outcome = {QV_HOST_ERROR_REFUSED, "no"};
    EXPECT_THAT(submit(batch), ElementsAre(QV_HOST_ERROR_REFUSED, QV_OK));
    EXPECT_THAT(contents(), ElementsAre(Pair(8, "/b")));
}

TEST_F(RecorderTest, DirectoryBeyondItsBoundsIsRefusedAlone) {
    open();
    Change tooMany;
    for (std::size_t id = 0; id <= kMostServices; ++id) {
        tooMany.edits.push_back({static_cast<int32_t>(id), "/x"});
    }
    const auto batch = std::make_shared<Batch>();
    batch->add(std::move(tooMany)).put(-1, "/a");
    EXPECT_THAT(submit(batch), ElementsAre(QV_HOST_ERROR_REFUSED, QV_OK));
    EXPECT_THAT(contents(), ElementsAre(Pair(-1, "/a")));
}

TEST_F(RecorderTest, WhatCannotBeKeptIsMadeAndSaysSoUntilItIsKept) {
    open();
    put(1, "/a");
    {
        const tests::LongestFile full(0);
        EXPECT_THAT(put(2, "/b"), ElementsAre(QV_HOST_ERROR_NOT_KEPT));
        EXPECT_THAT(put(2, "/b"), ElementsAre(QV_HOST_ERROR_NOT_KEPT));
        const auto later = std::make_shared<Batch>();
        later->remove(1);
        EXPECT_THAT(submit(later), ElementsAre(QV_HOST_ERROR_NOT_KEPT));
        EXPECT_THAT(later->items.front().outcome.bytes, HasSubstr(path_));
        EXPECT_THAT(contents(), ElementsAre(Pair(2, "/b")));
        EXPECT_FALSE(recorder_->state()->isKept);
        EXPECT_THAT(recorder_->state()->reason, HasSubstr(path_));
        EXPECT_TRUE(recorder_->statistics().notKeptSince);
    }
    waitUntilKept();
    EXPECT_FALSE(recorder_->statistics().notKeptSince);
    EXPECT_THAT(put(2, "/b"), ElementsAre(QV_OK));
    EXPECT_THAT(lines(), ElementsAre(StartsWith("changes are not kept: "),
                                     "the record can be written again, and holds every change"));
    open();
    EXPECT_THAT(contents(), ElementsAre(Pair(2, "/b")));
}

TEST_F(RecorderTest, RecordThatCannotBeMadeIsMadeLater) {
    path_ = files_.path("missing/record");
    open();
    EXPECT_FALSE(recorder_->hasRecord());
    EXPECT_THAT(put(1, "/a"), ElementsAre(QV_HOST_ERROR_NOT_KEPT));
    std::filesystem::create_directory(files_.path("missing"));
    waitUntilKept();
    open();
    EXPECT_THAT(contents(), ElementsAre(Pair(1, "/a")));
}

TEST_F(RecorderTest, RecordThatCannotBeOpenedEndsTheStart) {
    std::filesystem::create_directory(path_);
    EXPECT_THROW(open(), RecordError);
}

TEST_F(RecorderTest, DamagedRecordIsSetAside) {
    std::ofstream(path_) << std::string(5000, 'x');
    open();
    EXPECT_FALSE(recorder_->hasRecord());
    ASSERT_EQ(lines().size(), 1U);
    EXPECT_THAT(lines().front(), HasSubstr("; it is now " + path_ + ".damaged-"));
    EXPECT_THAT(put(1, "/a"), ElementsAre(QV_OK));
    open();
    EXPECT_THAT(contents(), ElementsAre(Pair(1, "/a")));
}

TEST_F(RecorderTest, ReplacementIsOneRevision) {
    open();
    put(1, "/a");
    put(2, "/b");
    const Recorder::StatePointer state = recorder_->replace({{2, "/c"}, {3, "/d"}});
    EXPECT_TRUE(state->isKept);
    EXPECT_EQ(state->snapshot->revision(), 3);
    EXPECT_THAT(contents(*state->snapshot), ElementsAre(Pair(2, "/c"), Pair(3, "/d")));
    open();
    EXPECT_THAT(contents(), ElementsAre(Pair(2, "/c"), Pair(3, "/d")));
}

TEST_F(RecorderTest, ReplacementMakesTheDirectoryThatOfARecord) {
    open();
    recorder_->replace({});
    EXPECT_TRUE(recorder_->hasRecord());
}

TEST_F(RecorderTest, NoteOutlivesTheRecorder) {
    open();
    put(1, "/a");
    EXPECT_TRUE(recorder_->note({1, 99, true, "keys"}));
    open();
    const FileNote note = recorder_->fileNote();
    EXPECT_EQ(note.revision, 1);
    EXPECT_EQ(note.fingerprint, 99U);
    EXPECT_TRUE(note.isBeingWritten);
    EXPECT_EQ(note.otherKeys, "keys");
}

TEST_F(RecorderTest, NoteThatCannotBeWrittenIsKeptLater) {
    open();
    {
        const tests::LongestFile full(0);
        EXPECT_FALSE(recorder_->note({1, 99, true, "keys"}));
    }
    waitUntilKept();
    open();
    EXPECT_EQ(recorder_->fileNote().otherKeys, "keys");
}

std::vector<int64_t> RecorderTest::revisionsAfter(int64_t revision) const {
    std::array<EventPointer, 16> events;
    std::vector<int64_t> revisions;
    const std::optional<std::size_t> count =
        recorder_->history().after(revision, events.data(), events.size());
    for (std::size_t i = 0; i < count.value_or(0); ++i) {
        revisions.push_back(events[i]->revision());
    }
    return count ? revisions : std::vector<int64_t>{-1};
}

TEST_F(RecorderTest, EachCommitThatChangesSomethingIsAnEvent) {
    open();
    put(1, "/a");
    put(1, "/a");
    put(1, "/b");
    recorder_->replace({{2, "/c"}});
    EXPECT_THAT(revisionsAfter(0), ElementsAre(1, 2, 3));
    std::array<EventPointer, 3> events;
    recorder_->history().after(0, events.data(), events.size());
    wire::HostEvent last;
    ASSERT_TRUE(last.ParseFromString(std::string(events[2]->bytes())));
    EXPECT_EQ(last.registered_size(), 1);
    EXPECT_THAT(last.withdrawn(), ElementsAre(1));
    EXPECT_EQ(last.epoch(), recorder_->history().epoch());
}

TEST_F(RecorderTest, ChangeThatIsNotKeptIsAnEvent) {
    open();
    const tests::LongestFile full(0);
    put(1, "/a");
    EXPECT_THAT(revisionsAfter(0), ElementsAre(1));
}

TEST_F(RecorderTest, LongCommitLeavesNoHistory) {
    open();
    put(1, "/a");
    Change many;
    for (int32_t id = 0; id < 10'000; ++id) {
        many.edits.push_back({id, "/service"});
    }
    const auto batch = std::make_shared<Batch>();
    batch->add(std::move(many));
    EXPECT_THAT(submit(batch), ElementsAre(QV_OK));
    EXPECT_THAT(revisionsAfter(1), ElementsAre(-1));
    EXPECT_THAT(revisionsAfter(2), IsEmpty());
}

TEST_F(RecorderTest, ClientOfTheLastRunGoesOnIfNothingChanged) {
    open();
    put(1, "/a");
    const uint64_t first = recorder_->history().epoch();
    open();
    const uint64_t second = recorder_->history().epoch();
    EXPECT_EQ(recorder_->history().positionOf({first, 1}), 1);
    EXPECT_EQ(recorder_->history().positionOf({first, 0}), std::nullopt);
    put(1, "/b");
    EXPECT_EQ(recorder_->history().positionOf({first, 1}), 1);
    EXPECT_EQ(recorder_->history().positionOf({first, 2}), std::nullopt);
    // The run names itself in the record at its start, and so does one that changes nothing.
    open();
    const uint64_t third = recorder_->history().epoch();
    open();
    EXPECT_EQ(recorder_->history().positionOf({first, 1}), std::nullopt);
    EXPECT_EQ(recorder_->history().positionOf({second, 2}), std::nullopt);
    EXPECT_EQ(recorder_->history().positionOf({third, 2}), 2);
}

TEST_F(RecorderTest, RevisionThatWasNotKeptIsForgotten) {
    open();
    put(1, "/a");
    const uint64_t first = recorder_->history().epoch();
    {
        const tests::LongestFile full(0);
        put(1, "/b");
        EXPECT_EQ(recorder_->state()->snapshot->revision(), 2);
        recorder_.reset();
    }
    open();
    EXPECT_EQ(recorder_->history().positionOf({first, 2}), std::nullopt);
    EXPECT_EQ(recorder_->history().positionOf({first, 1}), 1);
}

TEST_F(RecorderTest, EpochThatCannotBeWrittenIsWrittenWithTheNextChange) {
    open();
    put(1, "/a");
    const uint64_t first = recorder_->history().epoch();
    uint64_t second = 0;
    {
        const tests::LongestFile full(0);
        open();
        second = recorder_->history().epoch();
        EXPECT_TRUE(recorder_->state()->isKept);
        EXPECT_EQ(recorder_->history().positionOf({first, 1}), 1);
    }
    EXPECT_THAT(put(1, "/b"), ElementsAre(QV_OK));
    open();
    EXPECT_EQ(recorder_->history().positionOf({second, 2}), 2);
    EXPECT_EQ(recorder_->history().positionOf({first, 1}), std::nullopt);
}

TEST_F(RecorderTest, ManyThreadsShareCommitsAndLoseNothing) {
    open();
    constexpr int kThreads = 8;
    constexpr int kChanges = 100;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, thread] {
            for (int i = 0; i < kChanges; ++i) {
                EXPECT_THAT(put(thread * kChanges + i, "/a"), ElementsAre(QV_OK));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(recorder_->statistics().changes, uint64_t{kThreads} * kChanges);
    open();
    EXPECT_EQ(recorder_->state()->snapshot->size(), std::size_t{kThreads} * kChanges);
}

}  // namespace
}  // namespace qv::host
