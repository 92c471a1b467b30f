#include "server/FrameReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "qvhost/RawClient.h"

namespace qv::host {
namespace {

constexpr uint32_t kMax = 1'000'000;

// Gives the reader up to `count` of the bytes. Returns how many it took.
std::size_t give(FrameReader& reader, const std::string& bytes, std::size_t count) {
    const FrameReader::Space space = reader.space();
    const std::size_t taken = std::min({count, space.size, bytes.size()});
    std::memcpy(space.bytes, bytes.data(), taken);
    reader.received(taken);
    return taken;
}

// Returns the frames of bytes that arrive in pieces of this size.
std::vector<std::string> framesOf(const std::string& bytes, std::size_t piece) {
    FrameReader reader(kMax);
    std::vector<std::string> frames;
    for (std::size_t at = 0; at < bytes.size();) {
        at += give(reader, bytes.substr(at, piece), piece);
        while (const std::optional<Frame> frame = reader.next()) {
            EXPECT_NE(frame->bytes.data(), nullptr);
            frames.push_back(std::to_string(frame->header.code) + ' ' +
                             std::to_string(frame->header.number) + ' ' +
                             std::string(frame->bytes));
        }
    }
    EXPECT_TRUE(reader.empty());
    return frames;
}

TEST(FrameReader, FramesAreTheSameHoweverTheirBytesArrive) {
    const std::string longOne(100'000, 'x');
    const std::string bytes = frame(1, 7) + frame(0x202, 0xffffffff, "abc") + frame(2, 8, longOne) +
                              frame(3, 9, std::string("\0\n", 2));
    const std::vector<std::string> frames = {"1 7 ", "514 4294967295 abc", "2 8 " + longOne,
                                             std::string("3 9 \0\n", 6)};
    for (const std::size_t piece : {1, 2, 11, 12, 13, 4096, 1'000'000}) {
        EXPECT_EQ(framesOf(bytes, piece), frames) << piece;
    }
}

TEST(FrameReader, ThousandsOfFramesArriveTogether) {
    std::string bytes;
    for (uint32_t i = 0; i < 5000; ++i) {
        bytes += frame(i, i, std::string(i % 50, 'a'));
    }
    EXPECT_EQ(framesOf(bytes, bytes.size()).size(), 5000U);
}

TEST(FrameReader, AnnouncedLengthCostsNothing) {
    FrameReader reader(0xffffffff);
    std::string header = frame(1, 2);
    header.replace(4, 4, "\xff\xff\xff\xff");
    give(reader, header, header.size());
    EXPECT_FALSE(reader.next());
    EXPECT_FALSE(reader.tooLong());
    EXPECT_EQ(reader.header()->length, 0xffffffff);
    static_cast<void>(reader.space());
    EXPECT_LE(reader.capacity(), 16U * 1024);
}

TEST(FrameReader, BufferGrowsWithTheBytesAndIsFreed) {
    FrameReader reader(kMax);
    const std::string bytes = frame(1, 2, std::string(kMax, 'x'));
    for (std::size_t at = 0; at < bytes.size();) {
        EXPECT_FALSE(reader.next());
        at += give(reader, bytes.substr(at, 10'000), 10'000);
        EXPECT_LE(reader.capacity(), std::max(std::size_t{16} * 1024, 2 * at));
    }
    EXPECT_TRUE(reader.next());
    static_cast<void>(reader.space());
    EXPECT_LE(reader.capacity(), 16U * 1024);
}

TEST(FrameReader, FrameThatIsTooLongIsRecognisedByItsHeader) {
    FrameReader reader(3);
    const std::string bytes = frame(1, 2, "abc") + frame(1, 3, "abcd").substr(0, 12);
    give(reader, bytes, bytes.size());
    EXPECT_FALSE(reader.tooLong());
    EXPECT_EQ(reader.next()->header.number, 2U);
    EXPECT_TRUE(reader.tooLong());
    EXPECT_FALSE(reader.next());
    EXPECT_EQ(reader.header()->number, 3U);
    EXPECT_FALSE(reader.empty());
}

TEST(FrameReader, PartOfAHeaderIsNoHeader) {
    FrameReader reader(kMax);
    EXPECT_TRUE(reader.empty());
    EXPECT_FALSE(reader.header());
    give(reader, frame(1, 2), 11);
    EXPECT_FALSE(reader.header());
    EXPECT_FALSE(reader.empty());
}

}  // namespace
}  // namespace qv::host
