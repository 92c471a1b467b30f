// SPDX-License-Identifier: Apache-2.0

#include "server/FrameReader.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace qv::host {

namespace {

// The first memory that a long request gets.
constexpr std::size_t kFirstOwn = 4 * kSharedReadBuffer;

}  // namespace

void FrameReader::resize(std::size_t capacity) {
    // realloc() need not copy the pages of a long request.
    void* const moved = std::realloc(own_.get(), capacity);
    if (moved == nullptr) {
        throw std::bad_alloc();
    }
    static_cast<void>(own_.release());
    own_.reset(static_cast<char*>(moved));
    capacity_ = capacity;
}

FrameReader::Space FrameReader::space(Shared& shared) {
    const std::size_t size = rest_.size();
    const std::size_t needed = ownBytesNeeded();
    if (needed == 0) {
        std::copy(rest_.begin(), rest_.end(), shared.begin());
        rest_ = {shared.data(), size};
        return {shared.data() + size, shared.size() - size};
    }
    // The memory ends with the request, so nothing of the next request is in it.
    if (size == capacity_) {
        resize(std::min(needed, std::max(kFirstOwn, 2 * size)));
        rest_ = {own_.get(), size};
    }
    return {own_.get() + size, capacity_ - size};
}

void FrameReader::keep() {
    // What begins the reader's own memory is kept already.
    if (!rest_.empty() && rest_.data() == own_.get()) {
        return;
    }
    const std::string_view rest = std::exchange(rest_, {});
    Memory kept;
    if (!rest.empty()) {
        kept.reset(static_cast<char*>(std::malloc(rest.size())));
        if (kept == nullptr) {
            throw std::bad_alloc();
        }
        std::memcpy(kept.get(), rest.data(), rest.size());
    }
    own_ = std::move(kept);
    capacity_ = rest.size();
    rest_ = {own_.get(), capacity_};
}

std::optional<QvFrameHeader> FrameReader::header() const {
    if (rest_.size() < QV_FRAME_HEADER_SIZE) {
        return std::nullopt;
    }
    unsigned char bytes[QV_FRAME_HEADER_SIZE];
    std::memcpy(bytes, rest_.data(), sizeof bytes);
    return QvFrameGetHeader(bytes);
}

std::size_t FrameReader::ownBytesNeeded() const {
    const std::optional<QvFrameHeader> announced = header();
    const std::size_t length =
        announced ? QV_FRAME_HEADER_SIZE + std::size_t{announced->length} : 0;
    return length <= kSharedReadBuffer ? 0 : length;
}

bool FrameReader::tooLong() const {
    const std::optional<QvFrameHeader> announced = header();
    return announced && announced->length > maxLength_;
}

std::optional<Frame> FrameReader::next() const {
    const std::optional<QvFrameHeader> announced = header();
    if (!announced || announced->length > maxLength_ ||
        rest_.size() - QV_FRAME_HEADER_SIZE < announced->length) {
        return std::nullopt;
    }
    return Frame{*announced, rest_.substr(QV_FRAME_HEADER_SIZE, announced->length)};
}

void FrameReader::pop() {
    rest_.remove_prefix(QV_FRAME_HEADER_SIZE + header()->length);
}

}  // namespace qv::host
