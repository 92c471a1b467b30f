// SPDX-License-Identifier: Apache-2.0

// Checks the properties of the fuzz targets for the measured documents and strings. If the program
// has two folders as its arguments, it writes the documents and strings there instead, as seeds of
// the fuzzers.

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "CoreFoundation/PropertyListProperties.h"
#include "CoreFoundation/StringProperties.h"
#include "gen_lite/Hex.h"
#include "platform/CoreFoundation/Base64.h"
#include "platform/CoreFoundation/MeasuredDocuments.h"
#include "support/Corpus.h"

namespace qv::tests {
namespace {

using nlohmann::json;

template <class Take>
void forEachLine(const std::string& name, Take take) {
    std::ifstream file(QV_TEST_DATA_DIR "/" + name);
    for (std::string line; std::getline(file, line);) {
        take(parseMeasured(line));
    }
}

// Calls `take` with the name and the bytes of each document.
template <class Take>
void forEachDocument(Take take) {
    for (const auto& [file, count] : kMeasuredDocuments) {
        forEachLine(file, [&take](const json& vector) {
            take(vector["name"].get<std::string>(), fromBase64(vector["input"].get<std::string>()));
        });
    }
}

template <class Take>
void forEachString(Take take) {
    int count = 0;
    forEachLine("utf8.jsonl", [&](const json& vector) {
        take("utf8-" + std::to_string(count++), fromHex(vector["bytes"].get<std::string>()));
    });
}

void checkDocument(const std::string& bytes) {
    checkInput(fuzz::checkPropertyListProperties, bytes);
}

void checkString(const std::string& bytes) {
    checkInput(fuzz::checkStringProperties, bytes);
}

TEST(PropertyListProperties, HoldForEveryMeasuredDocument) {
    int count = 0;
    forEachDocument([&count](const std::string& name, const std::string& bytes) {
        SCOPED_TRACE(name);
        checkDocument(bytes);
        ++count;
    });
    EXPECT_EQ(count, 1623);
}

TEST(PropertyListProperties, HoldForEveryBeginningOfADocument) {
    forEachDocument([](const std::string& name, const std::string& bytes) {
        // The short documents contain every kind and encoding. The long ones add nothing.
        if (bytes.size() > 700 || name.compare(0, 4, "fuzz") == 0) {
            return;
        }
        for (std::size_t size = 0; size < bytes.size(); size += 3) {
            checkDocument(bytes.substr(0, size));
        }
    });
}

TEST(StringProperties, HoldForEveryMeasuredString) {
    int count = 0;
    forEachString([&count](const std::string&, const std::string& bytes) {
        checkString(bytes);
        ++count;
    });
    EXPECT_EQ(count, 300);
}

TEST(StringProperties, HoldForTheBytesOfEveryDocument) {
    forEachDocument([](const std::string& name, const std::string& bytes) {
        if (name.compare(0, 4, "fuzz") != 0) {
            checkString(bytes);
        }
    });
}

TEST(StringProperties, HoldForEveryPairOfBytes) {
    for (int pair = 0; pair < 0x10000; ++pair) {
        checkString({static_cast<char>(pair >> 8), static_cast<char>(pair & 0xFF)});
    }
}

TEST(PropertyListProperties, HoldForTheCorpus) {
    checkCorpus("plist_fuzz", fuzz::checkPropertyListProperties);
}

TEST(StringProperties, HoldForTheCorpus) {
    checkCorpus("cfstring_fuzz", fuzz::checkStringProperties);
}

void writeDocuments(const std::string& folder) {
    forEachDocument([&folder](const std::string& name, const std::string& bytes) {
        writeSeed(folder, name, bytes);
    });
}

void writeStrings(const std::string& folder) {
    forEachString([&folder](const std::string& name, const std::string& bytes) {
        writeSeed(folder, name, bytes);
    });
}

}  // namespace
}  // namespace qv::tests

int main(int argc, char* argv[]) {
    return qv::tests::testOrWriteSeeds(argc, argv,
                                       {qv::tests::writeDocuments, qv::tests::writeStrings});
}
