// Takes bytes as they arrive and returns the complete requests in them:
//
//     const FrameReader::Space space = reader.space();
//     reader.received(read(socket, space.bytes, space.size));
//     while (const std::optional<Frame> frame = reader.next()) ...
//
// The length in a header costs no memory before the bytes arrive: beyond its smallest size, the
// buffer is at most twice as long as its content.
#ifndef QVHOST_SERVER_FRAME_READER_H
#define QVHOST_SERVER_FRAME_READER_H

#include <QvFrame.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

namespace qv::host {

struct Frame {
    QvFrameHeader header = {};
    std::string_view bytes;  // never a null pointer
};

class FrameReader {
  public:
    struct Space {
        void* bytes = nullptr;
        std::size_t size = 0;
    };

    // A request may have up to `maxLength` bytes after its header.
    explicit FrameReader(uint32_t maxLength) : maxLength_(maxLength) {}

    // Returns the space for the next bytes, which is never empty. Frames that next() returned are
    // not valid any more. Throws std::bad_alloc and keeps the bytes that have arrived.
    Space space();

    void received(std::size_t count) { end_ += count; }

    // Returns the next complete request, which is valid until space() is called. Returns nothing if
    // there is none, or if the next one is too long.
    std::optional<Frame> next();

    // Returns the header of the incomplete request, if that header has arrived.
    std::optional<QvFrameHeader> header() const;

    bool empty() const { return begin_ == end_; }
    bool tooLong() const;

    std::size_t capacity() const { return capacity_; }

  private:
    struct Release {
        void operator()(char* bytes) const { std::free(bytes); }
    };

    void resize(std::size_t capacity);

    std::unique_ptr<char, Release> buffer_;
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;  // of the bytes that next() has not returned
    std::size_t end_ = 0;
    uint32_t maxLength_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_FRAME_READER_H
