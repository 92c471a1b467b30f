#include "server/AnswerQueue.h"

#include <QvFrame.h>

#include <utility>

#include "server/ClientLimits.h"

namespace qv::host {

namespace {

// From this length on, another piece costs less than a copy.
constexpr std::size_t kLong = std::size_t{16} * 1024;

}  // namespace

std::string& AnswerQueue::bytes() {
    if (parts_.empty() || parts_.back().last) {
        parts_.emplace_back();
    }
    return parts_.back().bytes;
}

void AnswerQueue::appendHeader(uint32_t code, std::size_t length, uint32_t number) {
    unsigned char header[QV_FRAME_HEADER_SIZE];
    QvFramePutHeader(header, {code, static_cast<uint32_t>(length), number});
    bytes().append(reinterpret_cast<const char*>(header), sizeof header);
    size_ += sizeof header + length;
}

void AnswerQueue::append(uint32_t code, uint32_t number, std::string_view bytes) {
    appendHeader(code, bytes.size(), number);
    this->bytes().append(bytes);
}

void AnswerQueue::append(uint32_t number, Plugin::Answer answer) {
    const auto code = static_cast<uint32_t>(answer.result());
    if (answer.bytes().size() < kLong) {
        append(code, number, answer.bytes());
        return;
    }
    appendHeader(code, answer.bytes().size(), number);
    parts_.back().last.emplace(std::move(answer));
}

std::vector<std::string_view> AnswerQueue::pieces() const {
    std::vector<std::string_view> pieces;
    pieces.reserve(2 * parts_.size());
    for (const Part& part : parts_) {
        pieces.emplace_back(part.bytes);
        if (part.last) {
            pieces.push_back(part.last->bytes());
        }
    }
    return pieces;
}

void AnswerQueue::clear() {
    size_ = 0;
    if (parts_.size() == 1 && !parts_.front().last &&
        parts_.front().bytes.capacity() <= kIdleAnswerBuffer) {
        parts_.front().bytes.clear();
        return;
    }
    parts_.clear();
}

}  // namespace qv::host
