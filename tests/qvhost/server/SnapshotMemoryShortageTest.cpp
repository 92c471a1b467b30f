// SPDX-License-Identifier: Apache-2.0

// Makes each allocation of a commit fail in turn. The base of the commit stays as it is, and the
// edits that were made before stay made.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "qvhost/server/Snapshots.h"
#include "support/MemoryShortage.h"

namespace qv::host {
namespace {

const std::string addressOnTheHeap(100, 'x');

tests::Model services() {
    tests::Model model;
    for (int id = 0; id < 300; ++id) {
        model[id] = "/run/service" + std::to_string(id);
    }
    return model;
}

TEST(SnapshotShortage, FailedEditChangesNothing) {
    const SnapshotPointer base = tests::snapshotOf(services(), 1);
    const int allocations = tests::sweepShortages([&](tests::Shortage& shortage) {
        NextSnapshot next(base);
        next.put(7, "other");
        const Edits edits = next.edits();
        const std::size_t bytes = next.addressBytes();
        if (!shortage.during([&] { next.put(500, addressOnTheHeap); })) {
            EXPECT_EQ(next.edits(), edits);
            EXPECT_EQ(next.size(), 300U);
            EXPECT_EQ(next.addressBytes(), bytes);
            EXPECT_EQ(next.find(500), std::nullopt);
        }
    });
    EXPECT_GE(allocations, 2);
    const int allocationsOfRemoval = tests::sweepShortages([&](tests::Shortage& shortage) {
        NextSnapshot next(base);
        if (!shortage.during([&] { next.remove(7); })) {
            EXPECT_EQ(next.edits(), Edits{});
            EXPECT_EQ(next.size(), 300U);
            EXPECT_EQ(next.find(7), "/run/service7");
        }
    });
    EXPECT_GE(allocationsOfRemoval, 1);
}

TEST(SnapshotShortage, FailedCommitLeavesBaseAndEdits) {
    const tests::Model model = services();
    const SnapshotPointer base = tests::snapshotOf(model, 1);
    NextSnapshot next(base);
    for (int id = 100; id < 250; ++id) {
        next.remove(id);
    }
    next.put(500, addressOnTheHeap);
    const SnapshotPointer expected = next.finish(2);
    const int allocations = tests::sweepShortages([&](tests::Shortage& shortage) {
        SnapshotPointer snapshot;
        if (shortage.during([&] { snapshot = next.finish(2); })) {
            EXPECT_EQ(tests::listingOf(*snapshot), tests::listingOf(*expected));
        } else {
            EXPECT_EQ(snapshot, nullptr);
        }
        EXPECT_EQ(tests::modelOf(*base), model);
        EXPECT_EQ(difference(*base, *expected), next.edits());
    });
    EXPECT_GE(allocations, 6);
}

TEST(SnapshotShortage, FailedDifferenceLosesNoMemory) {
    const SnapshotPointer base = tests::snapshotOf(services(), 1);
    const SnapshotPointer other =
        tests::snapshotOf({{1, addressOnTheHeap}, {900, addressOnTheHeap}}, 2);
    const int allocations = tests::sweepShortages([&](tests::Shortage& shortage) {
        Edits edits;
        if (shortage.during([&] { edits = difference(*base, *other); })) {
            EXPECT_EQ(edits.size(), 301U);
        }
    });
    EXPECT_GE(allocations, 303);
}

}  // namespace
}  // namespace qv::host
