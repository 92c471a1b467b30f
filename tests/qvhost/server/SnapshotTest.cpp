// SPDX-License-Identifier: Apache-2.0

#include "server/Snapshot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "QvPlugin.h"
#include "qvhost/server/Snapshots.h"
#include "support/LoadedPlugin.h"
#include "support/UsualOrReduced.h"

namespace qv::host {
namespace {

using tests::listingOf;
using tests::Model;
using tests::modelOf;
using tests::snapshotOf;
using tests::usualOrReduced;

// Makes the edits in a copy of the model.
Model edited(Model model, const Edits& edits) {
    for (const auto& [id, address] : edits) {
        if (address) {
            model[id] = *address;
        } else {
            model.erase(id);
        }
    }
    return model;
}

// Returns services with the identifiers 0, `step`, 2 * `step` and so on.
Model numbered(int count, int step) {
    Model model;
    for (int i = 0; i < count; ++i) {
        model.emplace_hint(model.end(), i * step, "/run/service" + std::to_string(i));
    }
    return model;
}

std::size_t sharedBlocks(const Snapshot& one, const Snapshot& other) {
    const std::set<std::shared_ptr<const ServiceBlock>> blocks(one.blocks().begin(),
                                                               one.blocks().end());
    return static_cast<std::size_t>(
        std::count_if(other.blocks().begin(), other.blocks().end(),
                      [&](const auto& block) { return blocks.count(block) != 0; }));
}

// Checks everything that a snapshot says against the model.
void expectHolds(const Snapshot& snapshot, const Model& model) {
    EXPECT_EQ(modelOf(snapshot), model);
    EXPECT_EQ(snapshot.size(), model.size());
    EXPECT_EQ(snapshot.empty(), model.empty());
    std::size_t addressBytes = 0;
    for (const auto& [id, address] : model) {
        addressBytes += address.size();
        EXPECT_EQ(snapshot.find(id), address);
        EXPECT_EQ(snapshot.entry(id), tests::encode({{id, address}}));
    }
    EXPECT_EQ(snapshot.addressBytes(), addressBytes);
    const std::string listing = listingOf(snapshot);
    EXPECT_EQ(snapshot.listingBytes(), listing.size());
    EXPECT_TRUE(listing == tests::encode({model.begin(), model.end()}));
}

// Checks that the blocks are neither empty nor too large, and that no two neighbours are small.
void expectGoodBlocks(const Snapshot& snapshot) {
    const Snapshot::Blocks& blocks = snapshot.blocks();
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_GT(blocks[i]->size(), 0U);
        EXPECT_LE(blocks[i]->size(), kServicesOfBlock);
        if (i != 0) {
            EXPECT_GT(blocks[i - 1]->size() + blocks[i]->size(), kServicesOfBlock / 2);
        }
    }
}

TEST(Snapshot, EmptyDirectoryHasNoBlocks) {
    const Snapshot snapshot;
    EXPECT_EQ(snapshot.revision(), 0);
    EXPECT_TRUE(snapshot.blocks().empty());
    expectHolds(snapshot, {});
    EXPECT_EQ(snapshot.find(0), std::nullopt);
    EXPECT_TRUE(Snapshot(5, {}).blocks().empty());
}

TEST(Snapshot, ListingIsThatOfThePlugin) {
    const tests::Services services = {{INT_MIN, "a"},
                                      {-1, ""},
                                      {0, "/run/zero.sock"},
                                      {1, std::string("\xff\0x", 3)},
                                      {127, std::string(127, 'a')},
                                      {128, std::string(128, 'b')},
                                      {300, std::string(20'000, 'c')},
                                      {INT_MAX, "z"}};
    const tests::InitializedPlugin plugin;
    ASSERT_EQ(plugin.registerServices(services), QV_OK);
    const tests::Answer answer = plugin.execute(QV_COMMAND_GET_SERVICES, "");
    const Model model(services.begin(), services.end());
    const SnapshotPointer snapshot = snapshotOf(model, 1);
    EXPECT_EQ(listingOf(*snapshot), answer.bytes);
    expectHolds(*snapshot, model);
}

TEST(Snapshot, FindsOnlyWhatItHolds) {
    const Model model = numbered(1000, 3);
    const SnapshotPointer snapshot = snapshotOf(model, 1);
    for (int id = -2; id < 3002; ++id) {
        const auto service = model.find(id);
        EXPECT_EQ(snapshot->find(id).has_value(), service != model.end()) << id;
    }
    EXPECT_EQ(snapshot->find(INT_MIN), std::nullopt);
    EXPECT_EQ(snapshot->find(INT_MAX), std::nullopt);
}

TEST(ServiceBlock, RefusesMoreBytesThanItsOffsetsReach) {
    const std::string address(std::size_t{64} << 20, 'x');
    std::vector<ServiceView> services;
    services.reserve(64);
    for (int id = 0; id < 64; ++id) {
        services.push_back({id, address});
    }
    EXPECT_THROW(ServiceBlock(services.data(), services.size()), std::bad_alloc);
}

TEST(NextSnapshot, ChangedBlockIsCopiedAndTheOthersAreShared) {
    const SnapshotPointer base = snapshotOf(numbered(100'000, 2), 7);
    ASSERT_EQ(base->blocks().size(), 782U);
    NextSnapshot next(base);
    EXPECT_TRUE(next.put(100'000, "/run/other"));
    const SnapshotPointer changed = next.finish(8);
    EXPECT_EQ(changed->revision(), 8);
    EXPECT_EQ(changed->blocks().size(), 782U);
    EXPECT_EQ(sharedBlocks(*base, *changed), 781U);
    EXPECT_EQ(changed->find(100'000), "/run/other");
    EXPECT_EQ(base->find(100'000), "/run/service50000");
}

TEST(NextSnapshot, FullBlockIsSplitEvenly) {
    const SnapshotPointer base = snapshotOf(numbered(3 * kServicesOfBlock, 2), 1);
    ASSERT_EQ(base->blocks().size(), 3U);
    NextSnapshot next(base);
    EXPECT_TRUE(next.put(301, "/run/new"));
    const SnapshotPointer changed = next.finish(2);
    ASSERT_EQ(changed->blocks().size(), 4U);
    EXPECT_EQ(changed->blocks()[1]->size(), 64U);
    EXPECT_EQ(changed->blocks()[2]->size(), 65U);
    EXPECT_EQ(sharedBlocks(*base, *changed), 2U);
}

TEST(NextSnapshot, EmptyBlockVanishes) {
    const SnapshotPointer base = snapshotOf(numbered(3 * kServicesOfBlock, 1), 1);
    NextSnapshot next(base);
    for (int id = 128; id < 256; ++id) {
        EXPECT_TRUE(next.remove(id));
    }
    const SnapshotPointer changed = next.finish(2);
    EXPECT_EQ(changed->blocks().size(), 2U);
    EXPECT_EQ(sharedBlocks(*base, *changed), 2U);
}

TEST(NextSnapshot, NoEditsShareEverything) {
    const SnapshotPointer base = snapshotOf(numbered(1000, 1), 1);
    NextSnapshot next(base);
    EXPECT_TRUE(next.edits().empty());
    const SnapshotPointer changed = next.finish(2);
    EXPECT_EQ(changed->revision(), 2);
    EXPECT_EQ(changed->blocks(), base->blocks());
    EXPECT_TRUE(NextSnapshot(std::make_shared<const Snapshot>()).finish(1)->empty());
}

TEST(NextSnapshot, EditThatChangesNothingIsNotKept) {
    NextSnapshot next(snapshotOf({{1, "a"}, {2, "b"}}, 1));
    EXPECT_FALSE(next.put(1, "a"));
    EXPECT_FALSE(next.remove(3));
    EXPECT_TRUE(next.edits().empty());
    EXPECT_TRUE(next.put(3, "c"));
    EXPECT_FALSE(next.put(3, "c"));
    EXPECT_TRUE(next.remove(2));
    EXPECT_FALSE(next.remove(2));
    EXPECT_EQ(next.edits(), (Edits{{2, std::nullopt}, {3, "c"}}));
    EXPECT_EQ(next.size(), 2U);
    EXPECT_EQ(next.addressBytes(), 2U);
}

TEST(NextSnapshot, UndoneEditIsNotInTheDifference) {
    NextSnapshot next(snapshotOf({{1, "a"}, {2, "b"}}, 1));
    EXPECT_TRUE(next.put(1, "other"));
    EXPECT_EQ(next.find(1), "other");
    EXPECT_TRUE(next.put(1, "a"));
    EXPECT_TRUE(next.remove(2));
    EXPECT_EQ(next.find(2), std::nullopt);
    EXPECT_TRUE(next.put(2, "b"));
    EXPECT_TRUE(next.put(3, "c"));
    EXPECT_TRUE(next.remove(3));
    EXPECT_EQ(next.edits(), Edits{});
    EXPECT_EQ(next.size(), 2U);
    EXPECT_EQ(next.addressBytes(), 2U);
}

TEST(NextSnapshot, AddressMayBeThatOfAnotherEdit) {
    NextSnapshot next(snapshotOf({}, 1));
    EXPECT_TRUE(next.put(1, std::string(100, 'x')));
    EXPECT_TRUE(next.put(1, next.find(1)->substr(50)));
    EXPECT_EQ(next.find(1), std::string(50, 'x'));
    EXPECT_EQ(next.addressBytes(), 50U);
}

TEST(NextSnapshot, DirectoryThatShrinksHasFewBlocks) {
    std::mt19937 random(1);
    Model model = numbered(20'000, 1);
    SnapshotPointer snapshot = snapshotOf(model, 1);
    std::vector<int32_t> ids;
    for (const auto& [id, address] : model) {
        ids.push_back(id);
    }
    std::shuffle(ids.begin(), ids.end(), random);
    while (!ids.empty()) {
        NextSnapshot next(snapshot);
        for (int i = 0; i < 40; ++i) {
            EXPECT_TRUE(next.remove(ids.back()));
            model.erase(ids.back());
            ids.pop_back();
        }
        snapshot = next.finish(snapshot->revision() + 1);
        expectGoodBlocks(*snapshot);
        ASSERT_EQ(snapshot->size(), model.size());
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_EQ(snapshot->revision(), 501);
    EXPECT_TRUE(snapshot->blocks().empty());
}

TEST(NextSnapshot, ServicesInOrderFillHalfBlocksAtLeast) {
    for (const int step : {1, -1}) {
        SnapshotPointer snapshot = snapshotOf({}, 0);
        for (int i = 0; i < 5000; ++i) {
            NextSnapshot next(snapshot);
            EXPECT_TRUE(next.put(i * step, "a"));
            snapshot = next.finish(i + 1);
        }
        EXPECT_EQ(snapshot->size(), 5000U);
        EXPECT_LE(snapshot->blocks().size(), 5000 / (kServicesOfBlock / 2) + 1) << step;
    }
}

// Draws edits, often many in the same place, and sometimes at the ends of the range.
class RandomEdits {
  public:
    explicit RandomEdits(unsigned seed) : random_(seed) {}

    int below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random_); }

    int32_t id() {
        switch (below(20)) {
            case 0:
                return INT_MIN + below(2);
            case 1:
                return INT_MAX - below(2);
            default:
                return below(3000) - 1500;
        }
    }

    std::string address() {
        return std::string(static_cast<std::size_t>(below(5)), static_cast<char>('a' + below(2)));
    }

    // Makes edits in both, and compares what they say meanwhile.
    void edit(NextSnapshot& next, Model& model) {
        const bool mostlyAdds = below(2) == 0;
        for (int ranges = below(4); ranges > 0; --ranges) {
            int32_t id = this->id();
            for (int count = below(below(2) == 0 ? 3 : 400); count > 0; --count) {
                one(next, model, id, mostlyAdds == (below(10) != 0));
                id = id == INT_MAX || below(8) == 0 ? this->id() : id + 1;
            }
        }
    }

  private:
    void one(NextSnapshot& next, Model& model, int32_t id, bool isPut) {
        const auto old = model.find(id);
        const std::string text = address();
        if (isPut) {
            EXPECT_EQ(next.put(id, text), old == model.end() || old->second != text);
            model[id] = text;
        } else {
            EXPECT_EQ(next.remove(id), old != model.end());
            model.erase(id);
        }
        EXPECT_EQ(next.find(id), isPut ? std::optional<std::string_view>(text) : std::nullopt);
        EXPECT_EQ(next.size(), model.size());
    }

    std::mt19937 random_;
};

TEST(NextSnapshot, RandomEditsAgreeWithAMap) {
    RandomEdits draw(2);
    constexpr int kChains = usualOrReduced(20, 5);
    for (int chain = 0; chain < kChains; ++chain) {
        Model model;
        std::vector<std::pair<SnapshotPointer, Model>> history;
        history.emplace_back(std::make_shared<const Snapshot>(), model);
        for (int64_t revision = 1; revision <= 30; ++revision) {
            const SnapshotPointer base = history.back().first;
            NextSnapshot next(base);
            draw.edit(next, model);
            const SnapshotPointer snapshot = next.finish(revision);
            EXPECT_EQ(snapshot->revision(), revision);
            EXPECT_EQ(next.addressBytes(), snapshot->addressBytes());
            EXPECT_EQ(edited(history.back().second, next.edits()), model);
            EXPECT_EQ(next.edits(), difference(*base, *snapshot));
            expectHolds(*snapshot, model);
            expectGoodBlocks(*snapshot);
            history.emplace_back(snapshot, model);
            ASSERT_FALSE(testing::Test::HasFailure()) << chain << ' ' << revision;
        }
        for (const auto& [snapshot, services] : history) {
            ASSERT_EQ(modelOf(*snapshot), services);
            ASSERT_EQ(edited(services, difference(*snapshot, *history.back().first)), model);
            ASSERT_EQ(edited(model, difference(*history.back().first, *snapshot)), services);
        }
    }
}

TEST(Difference, HoldsExactlyWhatChanged) {
    Model model = numbered(100'000, 2);
    const SnapshotPointer from = snapshotOf(model, 1);
    NextSnapshot next(from);
    // The added services move the later blocks to other positions.
    for (int id = 1; id < 600; id += 2) {
        next.put(id, "new");
    }
    next.put(150'000, "other");
    next.remove(199'998);
    next.put(INT_MAX, "last");
    const SnapshotPointer to = next.finish(2);
    EXPECT_NE(to->blocks().size(), from->blocks().size());
    EXPECT_GE(sharedBlocks(*from, *to), 775U);
    EXPECT_EQ(difference(*from, *to), next.edits());
    EXPECT_EQ(edited(modelOf(*to), difference(*to, *from)), model);
    EXPECT_EQ(difference(*to, *to), Edits{});
    EXPECT_EQ(difference(*from, *snapshotOf(model, 9)), Edits{});
    EXPECT_EQ(difference(*from, Snapshot()).size(), 100'000U);
}

}  // namespace
}  // namespace qv::host
