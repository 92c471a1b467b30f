// SPDX-License-Identifier: Apache-2.0

// Tests messages that hold messages with required fields, and messages of their own type. None of
// the product's messages does.

#include <gtest/gtest.h>

#include <string>

#include "nestedMessages.pb.h"

namespace qv::tests {
namespace {

using qor::kevra::nested::Needy;

TEST(NestedMessages, NeedTheRequiredFieldsOfTheirElements) {
    Needy message;
    message.set_name("a");
    EXPECT_TRUE(message.IsInitialized());
    Needy* const element = message.add_elements();
    EXPECT_FALSE(message.IsInitialized());
    element->set_name("b");
    EXPECT_TRUE(message.IsInitialized());
    element->mutable_next();
    EXPECT_FALSE(message.IsInitialized());
    element->mutable_next()->set_name("c");
    EXPECT_TRUE(message.IsInitialized());
}

// Returns a message with `depth` messages below it, each of which holds the next.
std::string nested(int depth) {
    std::string bytes;
    for (int level = 0; level < depth; ++level) {
        std::string outer("\x12");
        std::size_t length = bytes.size();
        for (; length >= 0x80; length >>= 7) {
            outer.push_back(static_cast<char>(length | 0x80));
        }
        outer.push_back(static_cast<char>(length));
        bytes = outer.append(bytes);
    }
    return bytes;
}

TEST(NestedMessages, MayNestUpToTheLimit) {
    Needy message;
    EXPECT_TRUE(message.ParsePartialFromString(nested(64)));
    EXPECT_FALSE(message.ParsePartialFromString(nested(65)));
    EXPECT_FALSE(message.ParsePartialFromString(nested(10'000)));
}

}  // namespace
}  // namespace qv::tests
