// SPDX-License-Identifier: Apache-2.0

// Sends one request at a time, outside the measured time.
#ifndef QV_BENCH_FRAME_CONNECTION_H
#define QV_BENCH_FRAME_CONNECTION_H

#include <QvFrame.h>

#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <cstddef>
#include <cstdint>
#include <string>

namespace qv::bench {

inline std::string frame(uint32_t code, const std::string& bytes) {
    std::string text(QV_FRAME_HEADER_SIZE, '\0');
    QvFramePutHeader(reinterpret_cast<unsigned char*>(text.data()),
                     {code, static_cast<uint32_t>(bytes.size()), 0});
    return text + bytes;
}

inline QvFrameHeader headerOf(const std::string& frame) {
    return QvFrameGetHeader(reinterpret_cast<const unsigned char*>(frame.data()));
}

class FrameConnection {
  public:
    explicit FrameConnection(const std::string& path) : socket_(context_) {
        socket_.connect(asio::local::stream_protocol::endpoint(path));
    }

    // Returns the whole frame of the answer, whatever its code.
    std::string ask(const std::string& request) {
        asio::write(socket_, asio::buffer(request));
        std::string answer(QV_FRAME_HEADER_SIZE, '\0');
        asio::read(socket_, asio::buffer(answer));
        const std::size_t length = headerOf(answer).length;
        answer.resize(answer.size() + length);
        asio::read(socket_, asio::buffer(&answer[QV_FRAME_HEADER_SIZE], length));
        return answer;
    }

  private:
    asio::io_context context_;
    asio::local::stream_protocol::socket socket_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_FRAME_CONNECTION_H
