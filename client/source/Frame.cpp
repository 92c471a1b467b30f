// SPDX-License-Identifier: Apache-2.0

#include "Frame.h"

#include <algorithm>

#include "QvClient.h"

namespace qv::client {

std::string frameOf(uint32_t command, uint32_t number, const std::string& input) {
    if (input.size() > std::numeric_limits<uint32_t>::max()) {
        throw Error(Error::Kind::TooLong, 0, "the request is too long to be sent");
    }
    QvFrameHeader header = {};
    header.code = command;
    header.length = static_cast<uint32_t>(input.size());
    header.number = number;
    unsigned char bytes[QV_FRAME_HEADER_SIZE];
    QvFramePutHeader(bytes, header);
    std::string frame;
    frame.reserve(sizeof bytes + input.size());
    frame.append(reinterpret_cast<const char*>(bytes), sizeof bytes);
    frame += input;
    return frame;
}

bool IncomingFrame::receiveHeader(const Socket& socket) {
    while (size_ < sizeof head_) {
        const std::size_t count =
            socket.receiveSome(reinterpret_cast<char*>(head_) + size_, sizeof head_ - size_);
        if (count == 0) {
            return false;
        }
        size_ += count;
        header_ = QvFrameGetHeader(head_);
    }
    return true;
}

bool IncomingFrame::receiveBytes(const Socket& socket) {
    constexpr std::size_t kStep = std::size_t{1} << 20;
    const std::size_t whole = sizeof head_ + header_.length;
    while (size_ < whole) {
        const std::size_t have = size_ - sizeof head_;
        if (bytes_.size() == have) {
            // Takes memory only as the bytes arrive, because the length is only a claim.
            bytes_.resize(have + std::min(header_.length - have, std::max(kStep, have)));
        }
        const std::size_t count = socket.receiveSome(bytes_.data() + have, bytes_.size() - have);
        if (count == 0) {
            return false;
        }
        size_ += count;
    }
    return true;
}

}  // namespace qv::client
