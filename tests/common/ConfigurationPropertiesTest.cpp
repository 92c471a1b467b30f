// SPDX-License-Identifier: Apache-2.0

// Checks the properties of the fuzz target configuration_fuzz for the pairs of a file and a backup
// in its corpus, and for each measured document as a file and as a backup.

#include "common/ConfigurationProperties.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "platform/CoreFoundation/Base64.h"
#include "support/ConfigurationDocuments.h"
#include "support/Corpus.h"

namespace qv::tests {
namespace {

constexpr std::size_t kLongestDocument = 1500;

// Calls `take` with the name and the bytes of each pair. Leaves out long documents, which are slow.
template <class Take>
void forEachPair(Take take) {
    const std::string good = documentOf({{1, "a"}, {3, "c"}});
    for (const char* const name : {"plist-cases.jsonl", "plist-damaged.jsonl"}) {
        std::ifstream file(std::string(QV_TEST_DATA_DIR "/") + name);
        for (std::string line; std::getline(file, line);) {
            const auto vector = nlohmann::json::parse(line);
            const std::string bytes = fromBase64(vector["input"].get<std::string>());
            if (bytes.size() <= kLongestDocument) {
                const std::string pair = vector["name"].get<std::string>();
                take(pair + "-file", fuzz::configurationInput(bytes, good));
                take(pair + "-backup", fuzz::configurationInput(std::nullopt, bytes));
            }
        }
    }
}

TEST(ConfigurationProperties, HoldForTheCorpus) {
    checkCorpus("configuration_fuzz", fuzz::checkConfigurationProperties);
}

TEST(ConfigurationProperties, HoldForEveryMeasuredDocument) {
    int count = 0;
    forEachPair([&count](const std::string& name, const std::string& bytes) {
        SCOPED_TRACE(name);
        checkInput(fuzz::checkConfigurationProperties, bytes);
        ++count;
    });
    EXPECT_GT(count, 2000);
}

void writeSeeds(const std::string& folder) {
    forEachPair([&folder](const std::string& name, const std::string& bytes) {
        writeSeed(folder, name, bytes);
    });
}

}  // namespace
}  // namespace qv::tests

int main(int argc, char* argv[]) {
    return qv::tests::testOrWriteSeeds(argc, argv, {qv::tests::writeSeeds});
}
