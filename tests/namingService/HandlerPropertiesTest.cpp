// SPDX-License-Identifier: Apache-2.0

// Checks the properties of the fuzz target handlers_fuzz for the inputs of its corpus, for each
// measured list of services as a request, and for long sequences of random steps.
//
// QV_TEST_SEED in the environment sets the seed of the random steps, to repeat them.

#include "namingService/HandlerProperties.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "gen_lite/Hex.h"
#include "gen_lite/LargeInput.h"
#include "gen_lite/WireFormat.h"
#include "namingService/ModelledPlugin.h"
#include "support/Corpus.h"
#include "support/UsualOrReduced.h"

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

// Returns an input of random steps. Most steps are those that a host or an operator makes often.
class RandomSteps {
  public:
    explicit RandomSteps(std::uint32_t seed) : random_(seed) {}

    std::string take(int count) {
        static const std::string letters =
            "rrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrruuuuuuuuuussssssssssssxxxxyyywwwwWWbbbbbbgggggcccccchh"
            "dRULn";
        std::string steps = "g" + anyId() + text("a") + "i";
        for (; count > 0; --count) {
            const char letter = letters[below(letters.size())];
            steps += letter + argumentsOf(letter);
        }
        return steps;
    }

  private:
    std::size_t below(std::size_t limit) { return random_() % limit; }

    static std::string text(const std::string& text) {
        return static_cast<char>(text.size()) + text;
    }

    // Few identifiers, so that many of them are registered already.
    std::string anyId() { return {static_cast<char>(static_cast<int>(below(8)) - 3)}; }

    std::string anyAddress() {
        // The last address is not UTF-8. It is rare, because it stops the saves.
        static const std::string addresses[] = {
            "", "a", "<&>", "caf\u00e9", std::string("a\0b", 3), "\u4e2d\U0001F600", "\xff"};
        return addresses[below(25) == 0 ? 6 : below(6)];
    }

    std::string anyDocument() {
        const auto withList = [](const std::string& elements) {
            return "<dict><key>Address</key><dict><key>services</key><array>" + elements +
                   "</array></dict><key>Note</key><integer>5</integer></dict>";
        };
        const std::string documents[] = {
            "",
            "damaged &",
            "<plist><array/></plist>",
            "<dict/>",
            withList("<dict/><string/>"),
            withList("<dict><key>id</key><integer>2</integer></dict><dict/><dict/>"),
        };
        return documents[below(std::size(documents))];
    }

    std::string argumentsOf(char letter) {
        switch (letter) {
            case 'r':
            case 'g':
                return anyId() + text(anyAddress());
            case 'u':
                return anyId();
            case 'R':
            case 'U':
                return text(fuzz::encodedService(1, "c") + fuzz::encodedService(2, anyAddress()));
            case 'w':
            case 'W':
            case 'b':
                return text(anyDocument());
            case 'h':
                return {static_cast<char>(below(256))};
            default:
                return "";
        }
    }

    std::mt19937 random_;
};

void checkRandomSteps(std::uint32_t seed) {
    std::printf("seed %u\n", seed);
    std::fflush(stdout);
    RandomSteps steps(seed);
    constexpr int kStep = usualOrReduced(1, 3);
    for (int length = 1; length <= 200; length += kStep) {
        checkInput(fuzz::checkHandlerProperties, steps.take(length));
    }
}

TEST(HandlerProperties, HoldForTheSameRandomSteps) {
    checkRandomSteps(20240229);
}

TEST(HandlerProperties, HoldForOtherRandomStepsEachTime) {
    const char* const seed = std::getenv("QV_TEST_SEED");
    checkRandomSteps(seed != nullptr ? static_cast<std::uint32_t>(std::strtoul(seed, nullptr, 10))
                                     : std::random_device()());
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
