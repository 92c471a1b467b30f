// SPDX-License-Identifier: Apache-2.0

// Runs the inputs in tests/data/fuzz, which a fuzz target must keep passing. Writes the measured
// inputs, from which a fuzzer starts.
#ifndef QV_TESTS_CORPUS_H
#define QV_TESTS_CORPUS_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/Files.h"

namespace qv::tests {

// Checks an input as a fuzz target does. Ends the process if a property does not hold.
using CheckInput = void (*)(const std::uint8_t* data, std::size_t size);

inline void checkInput(CheckInput check, const std::string& bytes) {
    check(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

// Checks all inputs of a target. Fails if the target has no inputs.
inline void checkCorpus(const std::string& target, CheckInput check) {
    const std::string folder = QV_TEST_DATA_DIR "/fuzz/" + target;
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        // If an input ends the process, its name is the last one that is printed.
        std::printf("%s\n", entry.path().filename().c_str());
        std::fflush(stdout);
        const auto bytes = contentOf(entry.path().string());
        ASSERT_TRUE(bytes) << entry.path();
        checkInput(check, *bytes);
        ++count;
    }
    EXPECT_GT(count, 0) << folder;
}

// Writes an input for a fuzzer to start from.
inline void writeSeed(const std::string& folder, const std::string& name,
                      const std::string& bytes) {
    std::ofstream(folder + "/" + name, std::ios::binary) << bytes;
}

using WriteSeeds = void (*)(const std::string& folder);

// Serves as main() of a test program. Runs the tests if there are no arguments. Otherwise the
// arguments are a folder for each writer, and the writers write their seeds there.
inline int testOrWriteSeeds(int argc, char* argv[], const std::vector<WriteSeeds>& writers) {
    try {
        testing::InitGoogleMock(&argc, argv);
        if (argc == 1) {
            return RUN_ALL_TESTS();
        }
        if (static_cast<std::size_t>(argc) != writers.size() + 1) {
            std::fprintf(stderr, "%zu folders are needed\n", writers.size());
            return 2;
        }
        for (std::size_t index = 0; index < writers.size(); ++index) {
            writers[index](argv[index + 1]);
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}

}  // namespace qv::tests

#endif  // QV_TESTS_CORPUS_H
