// The object that is kept between uses.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "spare.h"

namespace qv::tests {
namespace {

using qor::kevra::Spare;

TEST(Spare, GivesTheObjectThatWasGivenBack) {
    Spare<std::string> spare;
    auto object = spare.take();
    *object = "contents";
    const std::string* const same = object.get();
    spare.giveBack(std::move(object));
    object = spare.take();
    EXPECT_EQ(object.get(), same);
    EXPECT_EQ(*object, "contents");
}

TEST(Spare, GivesANewObjectWhileTheOneIsInUse) {
    Spare<std::string> spare;
    const auto first = spare.take();
    const auto second = spare.take();
    EXPECT_NE(first, second);
    EXPECT_NE(second, nullptr);
}

TEST(Spare, DroppedObjectIsNotGivenAgain) {
    Spare<std::string> spare;
    auto object = spare.take();
    *object = "contents";
    spare.giveBack(std::move(object));
    spare.drop();
    EXPECT_EQ(*spare.take(), "");
}

TEST(Spare, NoTwoThreadsGetTheSameObject) {
    Spare<std::atomic<int>> spare;
    std::atomic<int> shared{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 10'000; ++round) {
                auto object = spare.take();
                shared += object->fetch_add(1) != 0 ? 1 : 0;
                object->fetch_sub(1);
                spare.giveBack(std::move(object));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(shared, 0);
}

}  // namespace
}  // namespace qv::tests
