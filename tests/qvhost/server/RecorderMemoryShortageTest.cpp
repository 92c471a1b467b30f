// SPDX-License-Identifier: Apache-2.0

// Makes each allocation of the recorder's thread fail in turn. A change is made or refused as a
// whole, and subscribers miss nothing without being told.
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "server/History.h"
#include "server/Recorder.h"
#include "support/FailingCalls.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {
namespace {

class Batch : public ChangeBatch {
  public:
    explicit Batch(const std::string& address) {
        items.emplace_back();
        items.back().change.edits = {{7, address}};
    }
    void answered(AnsweredClients& /*clients*/) noexcept override { promise_.set_value(); }
    uint32_t code() {
        promise_.get_future().wait();
        return items.front().outcome.code;
    }

  private:
    std::promise<void> promise_;
};

TEST(RecorderWithoutMemory, ChangeIsWholeAndSubscribersMissNothing) {
    const tests::TemporaryDirectory files;
    Recorder recorder(files.path("record"), [](const std::string& /*line*/) {});
    // The recorder's thread makes one of its own next allocations fail.
    std::atomic<int> count = -1;
    recorder.onPublished([&count] {
        if (const int next = count.exchange(-1); next >= 0) {
            tests::failMallocAfter(next);
        }
    });
    recorder.start();
    const auto codeOf = [&recorder](const std::string& address) {
        const auto batch = std::make_shared<Batch>(address);
        recorder.submit(batch);
        return batch->code();
    };
    const auto revision = [&recorder] { return recorder.state()->snapshot->revision(); };
    int withoutEvent = 0;
    int refused = 0;
    for (int i = 0; i < 200; ++i) {
        count = i;
        codeOf("/before" + std::to_string(i));
        const int64_t before = revision();
        const std::string address = std::string(100, 'a') + std::to_string(i);
        const uint32_t code = codeOf(address);
        const std::string now(*recorder.state()->snapshot->find(7));
        std::array<EventPointer, 2> events;
        const std::optional<std::size_t> following =
            recorder.history().after(before, events.data(), events.size());
        if (code == QV_ERROR_NO_MEMORY) {
            EXPECT_NE(now, address);
            EXPECT_EQ(following, 0U);
            ++refused;
        } else {
            EXPECT_TRUE(code == QV_OK || code == QV_HOST_ERROR_NOT_KEPT) << code;
            EXPECT_EQ(now, address);
            EXPECT_EQ(revision(), before + 1);
            EXPECT_EQ(following.value_or(1), 1U);
            withoutEvent += following ? 0 : 1;
        }
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(withoutEvent, 0);
}

}  // namespace
}  // namespace qv::host
