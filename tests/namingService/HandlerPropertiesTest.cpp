// Checks the properties of the fuzz target handlers_fuzz for the inputs of its corpus, and for each
// measured list of services as a request.

#include "namingService/HandlerProperties.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "gen_lite/Hex.h"
#include "gen_lite/LargeInput.h"
#include "gen_lite/WireFormat.h"
#include "namingService/ModelledPlugin.h"
#include "support/Corpus.h"

namespace qv::tests {
namespace {

// Calls `take` with a name and an input for each measured request. An input starts the plug-in,
// registers the services, restarts the plug-in and removes the services.
template <class Take>
void forEachRequest(Take take) {
    int count = 0;
    std::ifstream file(QV_TEST_DATA_DIR "/wire.jsonl");
    for (std::string line; std::getline(file, line);) {
        const auto vector = nlohmann::json::parse(line);
        const std::string request = fromHex(vector["input"]);
        if (vector["type"] == "ServiceInfoArray" && request.size() <= UINT8_MAX) {
            const std::string text = static_cast<char>(request.size()) + request;
            std::string steps = "g\x01\x01";
            steps.append("aiR").append(text).append("sU").append(text);
            take("wire-" + std::to_string(count++), steps);
        }
    }
}

TEST(HandlerProperties, HoldForTheCorpus) {
    checkCorpus("handlers_fuzz", fuzz::checkHandlerProperties);
}

TEST(HandlerProperties, HoldForEveryMeasuredRequest) {
    int count = 0;
    forEachRequest([&count](const std::string& name, const std::string& bytes) {
        SCOPED_TRACE(name);
        checkInput(fuzz::checkHandlerProperties, bytes);
        ++count;
    });
    EXPECT_GT(count, 150);
}

TEST(HandlerProperties, HoldForARequestOfMoreThan64MiB) {
    fuzz::ModelledPlugin plugin;
    plugin.initialize();
    plugin.registerServices(largeInput(8, fuzz::encodedService(2, "abcd")));
    plugin.check();
}

void writeSeeds(const std::string& folder) {
    forEachRequest([&folder](const std::string& name, const std::string& bytes) {
        writeSeed(folder, name, bytes);
    });
}

}  // namespace
}  // namespace qv::tests

int main(int argc, char* argv[]) {
    return qv::tests::testOrWriteSeeds(argc, argv, {qv::tests::writeSeeds});
}
