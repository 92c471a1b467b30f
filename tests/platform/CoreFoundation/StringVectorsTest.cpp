// SPDX-License-Identifier: Apache-2.0

// Compares the strings of the measured UTF-8 texts with the recorded ones.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "gen_lite/Hex.h"
#include "platform/CoreFoundation/MeasuredDocuments.h"
#include "platform/CoreFoundation/Objects.h"

namespace qv::tests {
namespace {

using nlohmann::json;

void checkVector(const json& vector) {
    const std::string bytes = fromHex(vector["bytes"].get<std::string>());
    const auto string =
        own(CFStringCreateWithCString(kCFAllocatorDefault, bytes.c_str(), kCFStringEncodingUTF8));
    ASSERT_EQ(static_cast<bool>(string), !vector["utf16"].is_null());
    const auto ofBytes = makeString(bytes);
    ASSERT_EQ(static_cast<bool>(ofBytes), static_cast<bool>(string));
    if (!string) {
        return;
    }
    EXPECT_TRUE(equal(string.get(), ofBytes.get()));
    EXPECT_EQ(hexOf(unitsOf(string.get())), vector["utf16"].get<std::string>());
    EXPECT_EQ(CFStringGetCStringPtr(string.get(), kCFStringEncodingUTF8) != nullptr,
              vector["direct"].get<bool>());
    // The buffer has room for the NUL.
    std::vector<char> buffer(4 * static_cast<std::size_t>(CFStringGetLength(string.get())) + 1);
    ASSERT_NE(CFStringGetCString(string.get(), buffer.data(), static_cast<CFIndex>(buffer.size()),
                                 kCFStringEncodingUTF8),
              FALSE);
    EXPECT_EQ(toHex(buffer.data()), vector["back"].get<std::string>());
}

TEST(StringVectors, Utf8IsConvertedAsRecorded) {
    std::ifstream file(QV_TEST_DATA_DIR "/utf8.jsonl");
    int count = 0;
    for (std::string line; std::getline(file, line); ++count) {
        const json vector = json::parse(line);
        SCOPED_TRACE(vector["bytes"].get<std::string>());
        checkVector(vector);
    }
    EXPECT_EQ(count, 300);
}

}  // namespace
}  // namespace qv::tests
