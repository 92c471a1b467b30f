// SPDX-License-Identifier: Apache-2.0

#include "qvhost/RawClient.h"

#include <QvFrame.h>
#include <QvSystem/UnixAddress.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace qv::host {

std::string frame(uint32_t code, uint32_t number, const std::string& bytes) {
    unsigned char header[QV_FRAME_HEADER_SIZE];
    QvFramePutHeader(header, {code, static_cast<uint32_t>(bytes.size()), number});
    return std::string(reinterpret_cast<const char*>(header), sizeof header) + bytes;
}

namespace {

system::Descriptor connectedTo(const std::string& path) {
    system::Descriptor descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = system::unixAddress(path);
    if (::connect(descriptor.get(), system::generic(address), sizeof address) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot connect to " + path);
    }
    return descriptor;
}

}  // namespace

RawClient::RawClient(const std::string& path) : RawClient(connectedTo(path)) {}

RawClient::RawClient(system::Descriptor connected) : descriptor_(std::move(connected)) {
    // The bound makes a test fail that waits for nothing.
    const timeval never = {120, 0};
    ::setsockopt(descriptor_.get(), SOL_SOCKET, SO_RCVTIMEO, &never, sizeof never);
    ::setsockopt(descriptor_.get(), SOL_SOCKET, SO_SNDTIMEO, &never, sizeof never);
}

bool RawClient::send(const std::string& bytes) const {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            ::send(descriptor_.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            EXPECT_EQ(errno, EPIPE) << std::strerror(errno);
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

bool RawClient::sendSome(const std::string& bytes) const {
    return ::send(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) > 0;
}

void RawClient::endSending() const {
    EXPECT_EQ(::shutdown(descriptor_.get(), SHUT_WR), 0);
}

bool RawClient::receive(char* bytes, std::size_t count) const {
    std::size_t received = 0;
    while (received < count) {
        const ssize_t part = ::recv(descriptor_.get(), bytes + received, count - received, 0);
        if (part <= 0) {
            EXPECT_EQ(part, 0) << std::strerror(errno);
            EXPECT_EQ(received, 0U) << "the connection ended in the middle of an answer";
            return false;
        }
        received += static_cast<std::size_t>(part);
    }
    return true;
}

std::optional<RawAnswer> RawClient::receive() const {
    char bytes[QV_FRAME_HEADER_SIZE];
    if (!receive(bytes, sizeof bytes)) {
        return std::nullopt;
    }
    unsigned char unsignedBytes[QV_FRAME_HEADER_SIZE];
    std::memcpy(unsignedBytes, bytes, sizeof bytes);
    const QvFrameHeader header = QvFrameGetHeader(unsignedBytes);
    RawAnswer answer = {header.code, header.number, std::string(header.length, '\0')};
    if (header.length != 0 && !receive(answer.bytes.data(), header.length)) {
        ADD_FAILURE() << "the connection ended behind an answer's header";
        return std::nullopt;
    }
    return answer;
}

std::vector<RawAnswer> RawClient::receiveAll() const {
    std::vector<RawAnswer> answers;
    while (std::optional<RawAnswer> answer = receive()) {
        answers.push_back(std::move(*answer));
    }
    return answers;
}

std::optional<RawAnswer> RawClient::ask(uint32_t code, uint32_t number,
                                        const std::string& bytes) const {
    return send(frame(code, number, bytes)) ? receive() : std::nullopt;
}

bool RawClient::works() const {
    const std::optional<RawAnswer> answer = ask(QV_HOST_COMMAND_PING, 4711);
    return answer && answer->code == 0 && answer->number == 4711 && answer->bytes.empty();
}

}  // namespace qv::host
