// SPDX-License-Identifier: Apache-2.0

// Makes the frames of requests and takes those of answers apart, as QvFrame.h defines them.
#ifndef QV_CLIENT_FRAME_H
#define QV_CLIENT_FRAME_H

#include <QvFrame.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

#include "Socket.h"

namespace qv::client {

// Returns the frame of a request. Throws Error if the input is too long for a frame.
std::string frameOf(uint32_t command, uint32_t number, const std::string& input);

// Receives one frame at whatever pieces it arrives in:
//
//     IncomingFrame frame;
//     while (!frame.receiveHeader(socket)) { ... wait ... }
//     check(frame.header());
//     while (!frame.receiveBytes(socket)) { ... wait ... }
//     use(frame.bytes());
//
// Receives nothing after the frame. Throws Error as Socket does.
class IncomingFrame {
  public:
    // Receives as much as has arrived. Return whether the header, or all bytes, are there.
    bool receiveHeader(const Socket& socket);
    bool receiveBytes(const Socket& socket);

    // Tells whether a part of the frame has arrived.
    bool hasBegun() const { return size_ != 0; }

    // Returns how many bytes of the frame have arrived.
    std::size_t received() const { return size_; }

    const QvFrameHeader& header() const { return header_; }
    std::string& bytes() { return bytes_; }

  private:
    unsigned char head_[QV_FRAME_HEADER_SIZE] = {};
    QvFrameHeader header_ = {};
    std::string bytes_;
    std::size_t size_ = 0;
};

}  // namespace qv::client

#endif  // QV_CLIENT_FRAME_H
