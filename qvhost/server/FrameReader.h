// SPDX-License-Identifier: Apache-2.0

// Cuts the bytes of one client into requests:
//
//     const FrameReader::Space space = reader.space(shared);
//     reader.received(read(socket, space.bytes, space.size));
//     while (const std::optional<Frame> frame = reader.next()) {
//         ...
//         reader.pop();
//     }
//     reader.keep();
//
// The bytes are read into memory that all clients of a thread share. The reader copies only what is
// left when the thread turns to another client. So a client that sends nothing takes no memory.
//
// A request that does not fit the shared memory gets memory of its own. Beyond its first size, this
// memory is at most twice as long as what has arrived, so an announced length costs nothing.
#ifndef QVHOST_SERVER_FRAME_READER_H
#define QVHOST_SERVER_FRAME_READER_H

#include <QvFrame.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

#include "server/ClientLimits.h"

namespace qv::host {

struct Frame {
    QvFrameHeader header = {};
    std::string_view bytes;  // never a null pointer
};

class FrameReader {
  public:
    using Shared = std::array<char, kSharedReadBuffer>;

    struct Space {
        void* bytes = nullptr;
        std::size_t size = 0;
    };

    // A request may have up to `maxLength` bytes after its header.
    explicit FrameReader(std::size_t maxLength) : maxLength_(maxLength) {}

    // Returns the space for the next bytes, which is never empty. Call it after keep(), and only if
    // the bytes that have arrived are less than the shared memory or next() returns nothing, and if
    // the next request is not too long. Throws std::bad_alloc and keeps the bytes that have
    // arrived.
    Space space(Shared& shared);

    // Takes bytes that were read into other memory, which must stay until keep() is called. Call it
    // only if the reader is empty.
    void take(std::string_view bytes) { rest_ = bytes; }

    void received(std::size_t count) { rest_ = {rest_.data(), rest_.size() + count}; }

    // Returns the next complete request, which is valid until another function that is not const
    // is called. Returns nothing if there is none, or if the next one is too long.
    std::optional<Frame> next() const;

    // Removes the request that next() returns.
    void pop();

    // Keeps what has arrived of further requests, and no more memory than they need. Call it before
    // the shared memory is used for another client. Throws std::bad_alloc and forgets the bytes.
    void keep();

    // Returns the header of the incomplete request, if that header has arrived.
    std::optional<QvFrameHeader> header() const;

    // Returns the memory of its own that the incomplete request needs to arrive: its length, or 0
    // if it fits the shared memory.
    std::size_t ownBytesNeeded() const;

    bool empty() const { return rest_.empty(); }
    bool tooLong() const;

    // Returns the memory that the reader has.
    std::size_t capacity() const { return capacity_; }

  private:
    struct Release {
        void operator()(char* bytes) const { std::free(bytes); }
    };

    using Memory = std::unique_ptr<char, Release>;

    void resize(std::size_t capacity);

    Memory own_;
    std::size_t capacity_ = 0;
    // The bytes that are not removed, in the memory of the reader or in the shared memory.
    std::string_view rest_;
    std::size_t maxLength_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_FRAME_READER_H
