// SPDX-License-Identifier: Apache-2.0

#include "Connection.h"

#include <QvFrame.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "Frame.h"

namespace qv::client {

namespace {

// The length of a plug-in's answer is an int.
constexpr uint32_t kLongestAnswer = std::numeric_limits<int32_t>::max();

// Tells whether the host may answer like this before it has the whole request.
bool isRefusal(uint32_t result) {
    return isHostResult(result) && result != QV_HOST_ERROR_NOT_KEPT;
}

}  // namespace

Connection::Connection(ClientOptions options) : options_(std::move(options)) {
    socket_.emplace(options_, Deadline(options_.timeout));
}

Deadline Connection::deadline(std::chrono::milliseconds timeout) const {
    return Deadline(timeout == kClientTimeout ? options_.timeout : timeout);
}

Answer Connection::request(uint32_t command, const std::string& input,
                           std::chrono::milliseconds timeout) {
    const Deadline deadline = this->deadline(timeout);
    // 0 marks an answer that belongs to no request.
    number_ = std::max<uint32_t>(number_ + 1, 1);
    const std::string request = frameOf(command, number_, input);
    // No request is under way. So the host has closed the connection, or tells why it will.
    if (socket_ && socket_->isReadable()) {
        socket_.reset();
    }
    if (!socket_) {
        socket_.emplace(options_, deadline);
    }
    try {
        return exchange(request, deadline);
    } catch (...) {
        // A late or broken answer would be taken for the answer to the next request.
        socket_.reset();
        throw;
    }
}

Answer Connection::exchange(const std::string& request, const Deadline& deadline) {
    // The host may stop reading and tell why.
    const bool isWhollySent = socket_->send(request, deadline) == request.size();
    Answer answer = receiveAnswer(isWhollySent, deadline);
    // The host would take the next request for the rest of this one.
    if (!isWhollySent || endsTheConnection(answer.result)) {
        socket_.reset();
    }
    return answer;
}

Answer Connection::receiveAnswer(bool isWhollySent, const Deadline& deadline) {
    IncomingFrame frame;
    while (!frame.receiveHeader(*socket_)) {
        socket_->waitUntilReadable(deadline);
    }
    const QvFrameHeader& header = frame.header();
    const bool belongsToNoRequest = header.number == 0 && endsTheConnection(header.code);
    if (header.number != number_ && !belongsToNoRequest) {
        throw brokenAnswer("it is to request " + std::to_string(header.number) + ", not " +
                           std::to_string(number_));
    }
    if (!isWhollySent && !isRefusal(header.code)) {
        throw brokenAnswer("it came before the request was sent");
    }
    if (header.length > kLongestAnswer) {
        throw brokenAnswer("it claims to have " + std::to_string(header.length) + " bytes");
    }
    while (!frame.receiveBytes(*socket_)) {
        socket_->waitUntilReadable(deadline);
    }
    return {header.code, std::move(frame.bytes())};
}

}  // namespace qv::client
