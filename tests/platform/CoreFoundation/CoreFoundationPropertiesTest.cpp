// The properties that the fuzz targets look at, for the measured documents and strings. With two
// folders as its arguments the program writes these there instead, as the fuzzers' seeds.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "CoreFoundation/PropertyListProperties.h"
#include "CoreFoundation/StringProperties.h"
#include "gen_lite/Hex.h"
#include "platform/CoreFoundation/Base64.h"

namespace qv::tests {
namespace {

using nlohmann::json;

template <class Take>
void forEachLine(const std::string& name, Take take) {
    std::ifstream file(QV_TEST_DATA_DIR "/" + name);
    for (std::string line; std::getline(file, line);) {
        take(json::parse(line));
    }
}

// Calls `take` with the name and the bytes of each.
template <class Take>
void forEachDocument(Take take) {
    for (const char* const name : {"plist-cases.jsonl", "plist-damaged.jsonl"}) {
        forEachLine(name, [&take](const json& vector) {
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
    fuzz::checkPropertyListProperties(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                      bytes.size());
}

void checkString(const std::string& bytes) {
    fuzz::checkStringProperties(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

TEST(PropertyListProperties, HoldForEveryMeasuredDocument) {
    int count = 0;
    forEachDocument([&count](const std::string& name, const std::string& bytes) {
        SCOPED_TRACE(name);
        checkDocument(bytes);
        ++count;
    });
    EXPECT_EQ(count, 1457);
}

TEST(PropertyListProperties, HoldForEveryBeginningOfADocument) {
    forEachDocument([](const std::string& name, const std::string& bytes) {
        // One document of each kind and encoding, and not the long ones, which hold nothing else.
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

TEST(StringProperties, HoldForEveryDocumentTakenAsAString) {
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

void writeSeeds(const std::string& documents, const std::string& strings) {
    const auto into = [](const std::string& folder) {
        return [folder](const std::string& name, const std::string& bytes) {
            std::ofstream(folder + "/" + name, std::ios::binary) << bytes;
        };
    };
    forEachDocument(into(documents));
    forEachString(into(strings));
}

}  // namespace
}  // namespace qv::tests

int main(int argc, char* argv[]) {
    try {
        testing::InitGoogleTest(&argc, argv);
        if (argc > 2) {
            qv::tests::writeSeeds(argv[1], argv[2]);
            return 0;
        }
        return RUN_ALL_TESTS();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
