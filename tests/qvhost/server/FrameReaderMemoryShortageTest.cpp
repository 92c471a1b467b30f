// SPDX-License-Identifier: Apache-2.0

// Lets the memory for requests run out.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "server/FrameReader.h"
#include "support/FailingCalls.h"

namespace qv::host {
namespace {

void give(FrameReader& reader, FrameReader::Shared& shared, const std::string& bytes) {
    const FrameReader::Space space = reader.space(shared);
    ASSERT_GE(space.size, bytes.size());
    std::memcpy(space.bytes, bytes.data(), bytes.size());
    reader.received(bytes.size());
}

// Returns the header of a request without its bytes.
std::string announced(uint32_t length) {
    unsigned char header[QV_FRAME_HEADER_SIZE];
    QvFramePutHeader(header, {1, length, 7});
    return {reinterpret_cast<const char*>(header), sizeof header};
}

TEST(FrameReaderShortage, LongRequestKeepsWhatHasArrived) {
    FrameReader reader(10'000'000);
    const auto shared = std::make_unique<FrameReader::Shared>();
    give(reader, *shared, announced(1'000'000) + "abc");
    reader.keep();
    tests::failEveryMallocAfter(0);
    EXPECT_THROW(static_cast<void>(reader.space(*shared)), std::bad_alloc);
    EXPECT_TRUE(tests::mallocFailed());
    EXPECT_EQ(reader.header()->number, 7U);
    give(reader, *shared, "def");
    EXPECT_EQ(reader.header()->number, 7U);
}

TEST(FrameReaderShortage, RestThatCannotBeKeptIsForgotten) {
    FrameReader reader(100);
    const auto shared = std::make_unique<FrameReader::Shared>();
    give(reader, *shared, announced(50) + "abc");
    tests::failEveryMallocAfter(0);
    EXPECT_THROW(reader.keep(), std::bad_alloc);
    EXPECT_TRUE(tests::mallocFailed());
    EXPECT_TRUE(reader.empty());
    reader.keep();
    EXPECT_EQ(reader.capacity(), 0U);
}

}  // namespace
}  // namespace qv::host
