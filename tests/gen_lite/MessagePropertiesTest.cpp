// SPDX-License-Identifier: Apache-2.0

// Checks the properties of the fuzz target for each measured input as each message type. With a
// folder as its argument, the program writes the inputs there as seeds of the fuzzer instead.

#include "gen_lite/MessageProperties.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "gen_lite/Hex.h"
#include "support/Corpus.h"

namespace qv::tests {
namespace {

// Calls `take` with each measured input, and with the name of the type that it was measured for.
template <class Take>
void forEachInput(Take take) {
    std::ifstream file(QV_TEST_DATA_DIR "/wire.jsonl");
    for (std::string line; std::getline(file, line);) {
        const auto json = nlohmann::json::parse(line);
        take(json["type"].get<std::string>(), fromHex(json["input"]));
    }
}

TEST(MessageProperties, HoldForEveryMeasuredInputAsEveryType) {
    int count = 0;
    forEachInput([&count](const std::string& name, const std::string& bytes) {
        EXPECT_LT(fuzz::messageTypeIndex(name), fuzz::messageTypeCount()) << name;
        for (std::size_t type = 0; type < fuzz::messageTypeCount(); ++type) {
            fuzz::checkMessageProperties(type, reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                         bytes.size());
        }
        ++count;
    });
    EXPECT_EQ(count, 5278);
}

TEST(MessageProperties, HoldForTheCorpus) {
    checkCorpus("messages_fuzz", fuzz::checkMessageProperties);
}

void writeSeeds(const std::string& folder) {
    int count = 0;
    forEachInput([&](const std::string& name, const std::string& bytes) {
        writeSeed(folder, "wire-" + std::to_string(count++),
                  static_cast<char>(fuzz::messageTypeIndex(name)) + bytes);
    });
}

}  // namespace
}  // namespace qv::tests

int main(int argc, char* argv[]) {
    return qv::tests::testOrWriteSeeds(argc, argv, {qv::tests::writeSeeds});
}
