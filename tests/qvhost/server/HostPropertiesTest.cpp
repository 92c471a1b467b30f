// SPDX-License-Identifier: Apache-2.0

// Checks the properties of the fuzz target host_fuzz: for its corpus, and for random sequences of
// steps.

#include "qvhost/HostProperties.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "support/Corpus.h"
#include "support/UsualOrReduced.h"

namespace qv::tests {
namespace {

class RandomSteps {
  public:
    explicit RandomSteps(unsigned seed) : random_(seed) {}

    // Returns an input of a start and so many further steps.
    std::string input(int steps) {
        std::string bytes;
        for (bytes += below(4) == 0 ? "I" : "i"; steps > 0; --steps) {
            bytes += step();
        }
        return bytes;
    }

  private:
    unsigned below(unsigned bound) { return static_cast<unsigned>(random_() % bound); }
    std::string byte(unsigned value) { return {1, static_cast<char>(value)}; }
    std::string number() { return byte(below(256)); }
    std::string id() { return byte(below(8)); }
    std::string text() {
        static const std::vector<std::string> texts = {"a",
                                                       "b",
                                                       "/run/x.sock",
                                                       "",
                                                       std::string(1, '\0'),
                                                       "\xff",
                                                       "\xef\xbb\xbfz",
                                                       "<&>\"",
                                                       "\xc3\xa9",
                                                       std::string(200, 'l'),
                                                       "\r\n\t",
                                                       "\x01"};
        // The first three can always be kept.
        const std::string& text = texts[below(4) == 0 ? below(texts.size()) : below(3)];
        return byte(static_cast<unsigned>(text.size())) + text;
    }

    std::string request() {
        switch (below(8)) {
            case 0:
            case 1:
            case 2:
                return "r" + id() + text();
            case 3:
                return "f" + id() + number();
            case 4:
            case 5:
                return "u" + id();
            case 6:
                return "R" + text();
            default:
                return "m\x01\x01" + id() + text() + byte(below(2)) + id() + text();
        }
    }
    std::string hostStep() {
        switch (below(10)) {
            case 0:
                return "q";
            case 1:
                return "s";
            case 2:
                return "l";
            case 3:
            case 4:
            case 5:
                return "t";
            case 6:
                return below(4) == 0 ? "I" : "i";
            default:
                return request();
        }
    }
    std::string edit() {
        switch (below(16)) {
            case 0:
                return "w" + text();
            case 1:
                return "x";
            case 2:
                return "d";
            case 3:
                return "c";
            case 4:
                return "b" + text();
            case 5:
                return "B" + id() + text() + id();
            case 6:
                return "y";
            case 7:
                return "h" + number();
            case 8:
                return "W" + text();
            case 9:
                return "g" + id() + text() + id();
            case 10:
            case 11:
                return "o" + id();
            case 12:
            case 13:
                return "v" + id();
            default:
                return "e" + id() + text();
        }
    }
    std::string step() {
        switch (below(16)) {
            case 0:
            case 1:
                return "k" + std::string(below(2), 'i');
            case 2:
            case 3:
            case 4:
                return "K" + number() + number() + hostStep() + std::string(below(2), 'i');
            case 5:
            case 6:
                return edit();
            case 7:
                return "q" + edit() + "i";
            case 8:
                return "F" + byte(below(3) == 0 ? below(4) : below(256));
            case 9:
            case 10:
                return "G";
            case 11:
                return below(4) == 0 ? "qj" + number() + "i" : "i";
            default:
                return hostStep();
        }
    }

    std::mt19937 random_;
};

TEST(HostProperties, HoldForTheCorpus) {
    checkCorpus("host_fuzz", fuzz::checkHostProperties);
}

TEST(HostProperties, HoldForRandomSteps) {
    constexpr unsigned kWalks = usualOrReduced(300, 100);
    constexpr int kSteps = 40;
    for (unsigned seed = 0; seed < kWalks; ++seed) {
        // If a walk ends the process, its number is the last one that is printed.
        std::printf("%u\n", seed);
        static_cast<void>(std::fflush(stdout));
        checkInput(fuzz::checkHostProperties, RandomSteps(seed).input(kSteps));
    }
}

// Writes the walks, from which the fuzzer starts.
void writeSeeds(const std::string& folder) {
    constexpr unsigned kSeeds = 30;
    constexpr int kSteps = 12;
    for (unsigned seed = 0; seed < kSeeds; ++seed) {
        writeSeed(folder, "walk-" + std::to_string(seed), RandomSteps(seed).input(kSteps));
    }
}

}  // namespace
}  // namespace qv::tests

int main(int argc, char* argv[]) {
    return qv::tests::testOrWriteSeeds(argc, argv, {qv::tests::writeSeeds});
}
