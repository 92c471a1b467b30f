#include "server/FrameReader.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "server/ClientLimits.h"

namespace qv::host {

void FrameReader::resize(std::size_t capacity) {
    // realloc() need not copy the pages of a long request.
    void* const moved = std::realloc(buffer_.get(), capacity);
    if (moved == nullptr) {
        throw std::bad_alloc();
    }
    static_cast<void>(buffer_.release());
    buffer_.reset(static_cast<char*>(moved));
    capacity_ = capacity;
}

FrameReader::Space FrameReader::space() {
    const std::size_t rest = end_ - begin_;
    if (begin_ != 0 && rest != 0) {
        std::memmove(buffer_.get(), buffer_.get() + begin_, rest);
    }
    begin_ = 0;
    end_ = rest;
    if (rest == 0 && capacity_ > kIdleRequestBuffer) {
        buffer_.reset();
        capacity_ = 0;
    }
    if (rest == capacity_) {
        resize(std::max(kIdleRequestBuffer, 2 * capacity_));
    }
    return {buffer_.get() + end_, capacity_ - end_};
}

std::optional<QvFrameHeader> FrameReader::header() const {
    if (end_ - begin_ < QV_FRAME_HEADER_SIZE) {
        return std::nullopt;
    }
    unsigned char bytes[QV_FRAME_HEADER_SIZE];
    std::memcpy(bytes, buffer_.get() + begin_, sizeof bytes);
    return QvFrameGetHeader(bytes);
}

bool FrameReader::tooLong() const {
    const std::optional<QvFrameHeader> announced = header();
    return announced && announced->length > maxLength_;
}

std::optional<Frame> FrameReader::next() {
    const std::optional<QvFrameHeader> announced = header();
    if (!announced || announced->length > maxLength_ ||
        end_ - begin_ - QV_FRAME_HEADER_SIZE < announced->length) {
        return std::nullopt;
    }
    const char* const bytes = buffer_.get() + begin_ + QV_FRAME_HEADER_SIZE;
    begin_ += QV_FRAME_HEADER_SIZE + announced->length;
    return Frame{*announced, {bytes, announced->length}};
}

}  // namespace qv::host
