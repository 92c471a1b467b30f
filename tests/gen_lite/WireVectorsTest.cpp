// SPDX-License-Identifier: Apache-2.0

// Compares every message with what the runtime of the product's other components leaves in it after
// a parse: tests/data/wire.jsonl holds measured inputs, well formed and damaged.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "gen_lite/AllMessages.h"
#include "gen_lite/Hex.h"
#include "gen_lite/Parsing.h"

namespace qv::tests {
namespace {

struct Vector {
    std::string input;
    bool parsed;
    bool initialized;
    std::string encoded;
};

// Returns the vectors of one message type.
std::vector<Vector> vectorsOf(const std::string& type) {
    std::vector<Vector> vectors;
    const std::string beginning = "{\"type\":\"" + type + "\",";
    std::ifstream file(QV_TEST_DATA_DIR "/wire.jsonl");
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, beginning.size(), beginning) != 0) {
            continue;
        }
        const auto json = nlohmann::json::parse(line);
        vectors.push_back(
            {fromHex(json["input"]), json["parsed"], json["initialized"], json["encoded"]});
    }
    return vectors;
}

template <class T>
class WireVectors : public testing::Test {};

TYPED_TEST_SUITE(WireVectors, AllMessages<testing::Types>, MessageName);

TYPED_TEST(WireVectors, AreReadAsMeasuredOnEveryRoad) {
    const Quiet quiet;
    const auto vectors = vectorsOf(MessageName::GetName<TypeParam>(0));
    EXPECT_FALSE(vectors.empty());
    for (const Road<TypeParam>& road : kRoads<TypeParam>) {
        TypeParam message;
        for (const Vector& vector : vectors) {
            SCOPED_TRACE(road.name + (": " + toHex(vector.input)));
            EXPECT_EQ(road.parse(&message, vector.input), vector.parsed);
            EXPECT_EQ(message.IsInitialized(), vector.initialized);
            EXPECT_EQ(encodedHex(message), vector.encoded);
            const TypeParam copy(message);
            EXPECT_EQ(encodedHex(copy), vector.encoded);
            EXPECT_EQ(static_cast<std::size_t>(copy.ByteSize()), vector.encoded.size() / 2);
        }
    }
}

}  // namespace
}  // namespace qv::tests
