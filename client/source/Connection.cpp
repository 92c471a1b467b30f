#include "Connection.h"

#include <QvPlugin.h>
#include <QvResult.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

#include "QvClient.h"

namespace qv::client {

namespace {

// The length of a plug-in's answer is an int.
constexpr uint32_t kLongestAnswer = std::numeric_limits<int32_t>::max();

bool isHostResult(uint32_t result) {
    return result >= 21000 && result < 22000;
}

// Tells whether the host may answer like this before it has the whole request.
bool isRefusal(uint32_t result) {
    return isHostResult(result) && result != QV_HOST_ERROR_NOT_KEPT;
}

bool endsTheConnection(uint32_t result) {
    return result >= QV_HOST_ERROR_FORBIDDEN && result <= QV_HOST_ERROR_STOPPING;
}

Error broken(const std::string& reason) {
    return {Error::Kind::BrokenAnswer, 0, "the host's answer is broken: " + reason};
}

std::string frame(const QvFrameHeader& header, const std::string& input) {
    unsigned char bytes[QV_FRAME_HEADER_SIZE];
    QvFramePutHeader(bytes, header);
    std::string frame;
    frame.reserve(sizeof bytes + input.size());
    frame.append(reinterpret_cast<const char*>(bytes), sizeof bytes);
    frame += input;
    return frame;
}

// Takes memory only as the bytes arrive, because the length is only a claim.
std::string receiveText(const Socket& socket, std::size_t length, const Deadline& deadline) {
    constexpr std::size_t kStep = std::size_t{1} << 20;
    std::string text;
    while (text.size() < length) {
        const std::size_t have = text.size();
        text.resize(have + std::min(length - have, std::max(kStep, have)));
        socket.receive(text.data() + have, text.size() - have, deadline);
    }
    return text;
}

}  // namespace

Connection::Connection(std::string path, std::chrono::milliseconds timeout)
    : path_(std::move(path)), timeout_(timeout) {
    socket_.emplace(path_, Deadline(timeout_));
}

Answer Connection::request(uint32_t command, const std::string& input) {
    if (input.size() > std::numeric_limits<uint32_t>::max()) {
        throw Error(Error::Kind::TooLong, 0, "the request is too long to be sent");
    }
    const Deadline deadline(timeout_);
    // No request is under way. So the host has closed the connection, or tells why it will.
    if (socket_ && socket_->isReadable()) {
        socket_.reset();
    }
    if (!socket_) {
        socket_.emplace(path_, deadline);
    }
    try {
        return exchange(command, input, deadline);
    } catch (...) {
        // A late or broken answer would be taken for the answer to the next request.
        socket_.reset();
        throw;
    }
}

Answer Connection::exchange(uint32_t command, const std::string& input, const Deadline& deadline) {
    // 0 marks an answer that belongs to no request.
    number_ = std::max<uint32_t>(number_ + 1, 1);
    QvFrameHeader header = {};
    header.code = command;
    header.length = static_cast<uint32_t>(input.size());
    header.number = number_;
    const std::string request = frame(header, input);
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
    unsigned char bytes[QV_FRAME_HEADER_SIZE];
    socket_->receive(reinterpret_cast<char*>(bytes), sizeof bytes, deadline);
    const QvFrameHeader header = QvFrameGetHeader(bytes);
    const bool belongsToNoRequest = header.number == 0 && endsTheConnection(header.code);
    if (header.number != number_ && !belongsToNoRequest) {
        throw broken("it is to request " + std::to_string(header.number) + ", not " +
                     std::to_string(number_));
    }
    if (!isWhollySent && !isRefusal(header.code)) {
        throw broken("it came before the request was sent");
    }
    if (header.length > kLongestAnswer) {
        throw broken("it claims to have " + std::to_string(header.length) + " bytes");
    }
    return {header.code, receiveText(*socket_, header.length, deadline)};
}

std::string bytesOf(Answer answer) {
    const auto code = static_cast<int32_t>(answer.result);
    if (isHostResult(answer.result)) {
        throw Error(Error::Kind::Refused, code,
                    "the host refused: " +
                        (answer.bytes.empty() ? "result " + std::to_string(code) : answer.bytes));
    }
    if (answer.result != QV_OK) {
        throw Error(Error::Kind::Result, code,
                    "the plug-in answered " + std::to_string(answer.result) + " (" +
                        resultMeaning(code) + ")");
    }
    return std::move(answer.bytes);
}

}  // namespace qv::client
