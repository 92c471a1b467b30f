// Takes bytes as they arrive and gives the requests that are complete in them:
//
//     const FrameReader::Space space = reader.space();
//     reader.received(read(socket, space.bytes, space.size));
//     while (const std::optional<Frame> frame = reader.next()) ...
//
// What a header announces costs nothing before it arrives: the buffer is never more than twice as
// long as what is in it, but for its smallest size.
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

    // A request may bring up to `maxLength` bytes after its header.
    explicit FrameReader(uint32_t maxLength) : maxLength_(maxLength) {}

    // Where the next bytes go; never empty. Ends the life of the frames given. Throws
    // std::bad_alloc, with what arrived kept.
    Space space();

    void received(std::size_t count) { end_ += count; }

    // The next complete request, whose bytes stand until space() is called. None when there is
    // none, or when the one that comes next is too long.
    std::optional<Frame> next();

    // The header of the request that has begun to arrive and is not complete, when it has arrived.
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
    std::size_t begin_ = 0;  // of what was not given yet
    std::size_t end_ = 0;
    uint32_t maxLength_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_FRAME_READER_H
