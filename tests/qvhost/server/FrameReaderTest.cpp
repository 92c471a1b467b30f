// SPDX-License-Identifier: Apache-2.0

#include "server/FrameReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qvhost/RawClient.h"

namespace qv::host {
namespace {

constexpr uint32_t kMax = 1'000'000;

// A client of a thread. What it does not keep is overwritten.
class Client {
  public:
    explicit Client(std::size_t maxLength = kMax) : reader(maxLength) {}

    // Gives the reader up to `count` of the bytes. Returns how many it took.
    std::size_t give(const std::string& bytes, std::size_t count) {
        keep();
        const FrameReader::Space space = reader.space(*shared_);
        EXPECT_GT(space.size, 0U);
        const std::size_t taken = std::min({count, space.size, bytes.size()});
        std::memcpy(space.bytes, bytes.data(), taken);
        if (static_cast<char*>(space.bytes) + space.size == shared_->end()) {
            used_ = shared_->size() - space.size + taken;
        }
        reader.received(taken);
        return taken;
    }
    std::size_t give(const std::string& bytes) { return give(bytes, bytes.size()); }

    // Gives the reader, which is empty, up to `count` of the bytes in other memory.
    std::size_t giveFirst(const std::string& bytes, std::size_t count) {
        first_ = bytes.substr(0, count);
        reader.take(first_);
        return first_.size();
    }

    // Lets another client use the shared memory.
    void keep() {
        reader.keep();
        std::fill_n(shared_->begin(), std::exchange(used_, 0), '?');
        std::fill(first_.begin(), first_.end(), '?');
    }

    FrameReader reader;

  private:
    std::string first_;
    std::unique_ptr<FrameReader::Shared> shared_ = std::make_unique<FrameReader::Shared>();
    std::size_t used_ = 0;  // The first bytes of the shared memory that are in use.
};

std::string textOf(const Frame& frame) {
    EXPECT_NE(frame.bytes.data(), nullptr);
    return std::to_string(frame.header.code) + ' ' + std::to_string(frame.header.number) + ' ' +
           std::string(frame.bytes);
}

// Returns the frames of bytes that arrive in pieces of this size. Up to `atOnce` frames are taken
// before another client has its turn. With `isFirstElsewhere` an empty reader gets bytes in memory
// that is not shared.
std::vector<std::string> framesOf(const std::string& bytes, std::size_t piece, int atOnce,
                                  bool isFirstElsewhere = false) {
    Client client;
    std::vector<std::string> frames;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::string next = bytes.substr(at, piece);
        at += isFirstElsewhere && client.reader.empty() ? client.giveFirst(next, piece)
                                                        : client.give(next, piece);
        int taken = 0;
        while (const std::optional<Frame> frame = client.reader.next()) {
            frames.push_back(textOf(*frame));
            client.reader.pop();
            if (++taken == atOnce) {
                taken = 0;
                client.keep();
            }
        }
        client.keep();
    }
    EXPECT_TRUE(client.reader.empty());
    EXPECT_EQ(client.reader.capacity(), 0U);
    return frames;
}

TEST(FrameReader, FramesAreTheSameHoweverTheirBytesArrive) {
    const std::string longOne(100'000, 'x');
    const std::string edge(kSharedReadBuffer - QV_FRAME_HEADER_SIZE, 'e');
    const std::string bytes = frame(1, 7) + frame(0x202, 0xffffffff, "abc") + frame(2, 8, longOne) +
                              frame(4, 1, edge) + frame(5, 2, edge + 'f') +
                              frame(3, 9, std::string("\0\n", 2));
    const std::vector<std::string> frames = {
        "1 7 ",        "514 4294967295 abc", "2 8 " + longOne,
        "4 1 " + edge, "5 2 " + edge + 'f',  std::string("3 9 \0\n", 6)};
    for (const std::size_t piece : {1, 2, 11, 12, 13, 4096, 1'000'000}) {
        for (const int atOnce : {1, 1000}) {
            // A failure must not print the bytes.
            EXPECT_TRUE(framesOf(bytes, piece, atOnce) == frames) << piece << ' ' << atOnce;
            EXPECT_TRUE(framesOf(bytes, piece, atOnce, true) == frames) << piece << ' ' << atOnce;
        }
    }
}

TEST(FrameReader, ThousandsOfFramesArriveTogether) {
    std::string bytes;
    for (uint32_t i = 0; i < 5000; ++i) {
        bytes += frame(i, i, std::string(i % 50, 'a'));
    }
    for (const int atOnce : {1, 7, 1'000'000}) {
        EXPECT_EQ(framesOf(bytes, bytes.size(), atOnce).size(), 5000U) << atOnce;
    }
}

TEST(FrameReader, AnnouncedLengthCostsNothing) {
    Client client(0xffffffff);
    std::string header = frame(1, 2);
    header.replace(4, 4, "\xff\xff\xff\xff");
    client.give(header);
    EXPECT_FALSE(client.reader.next());
    EXPECT_FALSE(client.reader.tooLong());
    EXPECT_EQ(client.reader.header()->length, 0xffffffff);
    EXPECT_EQ(client.reader.ownBytesNeeded(), std::size_t{0xffffffff} + QV_FRAME_HEADER_SIZE);
    client.keep();
    EXPECT_EQ(client.reader.capacity(), header.size());
    client.give("x");
    client.keep();
    EXPECT_LE(client.reader.capacity(), 64U * 1024);
}

TEST(FrameReader, OwnMemoryGrowsWithTheBytesAndEndsWithTheRequest) {
    Client client;
    const std::string bytes = frame(1, 2, std::string(kMax, 'x'));
    const std::string more = bytes + frame(3, 4);
    for (std::size_t at = 0; at < bytes.size();) {
        EXPECT_FALSE(client.reader.next());
        at += client.give(more.substr(at), 10'000);
        client.keep();
        EXPECT_LE(client.reader.capacity(), std::max(std::size_t{64} * 1024, 2 * at));
        EXPECT_LE(client.reader.capacity(), bytes.size());
        // The bytes are not copied with each piece.
        EXPECT_GE(client.reader.capacity(), at <= 10'000 ? at : std::size_t{64} * 1024);
    }
    EXPECT_TRUE(client.reader.next());
    client.reader.pop();
    EXPECT_TRUE(client.reader.empty());
    client.keep();
    EXPECT_EQ(client.reader.capacity(), 0U);
}

TEST(FrameReader, MemoryShrinksToWhatIsLeft) {
    Client client;
    const std::string last = frame(3, 4, std::string(100, 'x'));
    client.give(frame(1, 2, std::string(10'000, 'x')) + last);
    client.keep();
    EXPECT_EQ(client.reader.capacity(), 10'012 + last.size());
    EXPECT_TRUE(client.reader.next());
    client.reader.pop();
    client.keep();
    EXPECT_EQ(client.reader.capacity(), last.size());
    EXPECT_EQ(client.reader.next()->header.number, 4U);
    client.reader.pop();
    client.keep();
    EXPECT_EQ(client.reader.capacity(), 0U);
}

TEST(FrameReader, RequestThatFitsNeedsNoMemoryOfItsOwn) {
    Client client;
    EXPECT_EQ(client.reader.ownBytesNeeded(), 0U);
    const std::string fits(kSharedReadBuffer - QV_FRAME_HEADER_SIZE, 'x');
    client.give(frame(1, 2, fits), 1000);
    EXPECT_EQ(client.reader.ownBytesNeeded(), 0U);
    Client other;
    other.give(frame(1, 2, fits + 'x'), 1000);
    EXPECT_EQ(other.reader.ownBytesNeeded(), kSharedReadBuffer + 1);
}

TEST(FrameReader, FrameThatIsTooLongIsRecognisedByItsHeader) {
    Client client(3);
    client.give(frame(1, 2, "abc") + frame(1, 3, "abcd"));
    EXPECT_FALSE(client.reader.tooLong());
    EXPECT_EQ(client.reader.next()->header.number, 2U);
    client.reader.pop();
    EXPECT_TRUE(client.reader.tooLong());
    EXPECT_FALSE(client.reader.next());
    EXPECT_EQ(client.reader.header()->number, 3U);
    EXPECT_FALSE(client.reader.empty());
}

TEST(FrameReader, PartOfAHeaderIsNoHeader) {
    Client client;
    EXPECT_TRUE(client.reader.empty());
    EXPECT_FALSE(client.reader.header());
    client.give(frame(1, 2), 11);
    EXPECT_FALSE(client.reader.header());
    EXPECT_FALSE(client.reader.empty());
    EXPECT_FALSE(client.reader.next());
    client.give(frame(1, 2).substr(11));
    EXPECT_TRUE(client.reader.next());
}

}  // namespace
}  // namespace qv::host
