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

bool endsTheConnection(uint32_t result) {
    return result >= QV_HOST_ERROR_FORBIDDEN && result <= QV_HOST_ERROR_STOPPING;
}

Error broken(const std::string& reason) {
    return {Error::Kind::BrokenAnswer, 0, "the host's answer is broken: " + reason};
}

Error resultError(uint32_t result, const std::string& text) {
    const auto code = static_cast<int32_t>(result);
    if (isHostResult(result)) {
        return {Error::Kind::Refused, code,
                "the host refused: " + (text.empty() ? "result " + std::to_string(code) : text)};
    }
    return {Error::Kind::Result, code,
            "the plug-in answered " + std::to_string(result) + " (" + resultMeaning(code) + ")"};
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

std::string Connection::request(uint32_t command, const std::string& input) {
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
    } catch (const Error& error) {
        // A late or broken answer would be taken for the answer to the next request.
        const bool isAnswered =
            error.kind() == Error::Kind::Result || error.kind() == Error::Kind::Refused;
        if (!isAnswered || endsTheConnection(static_cast<uint32_t>(error.code()))) {
            socket_.reset();
        }
        throw;
    } catch (...) {
        socket_.reset();
        throw;
    }
}

std::string Connection::exchange(uint32_t command, const std::string& input,
                                 const Deadline& deadline) {
    // 0 marks an answer that belongs to no request.
    number_ = std::max<uint32_t>(number_ + 1, 1);
    QvFrameHeader header = {};
    header.code = command;
    header.length = static_cast<uint32_t>(input.size());
    header.number = number_;
    const std::string request = frame(header, input);
    // The host may stop reading and tell why.
    const bool isWhollySent = socket_->send(request, deadline) == request.size();
    return receiveAnswer(isWhollySent, deadline);
}

std::string Connection::receiveAnswer(bool isWhollySent, const Deadline& deadline) {
    unsigned char bytes[QV_FRAME_HEADER_SIZE];
    socket_->receive(reinterpret_cast<char*>(bytes), sizeof bytes, deadline);
    const QvFrameHeader header = QvFrameGetHeader(bytes);
    const bool belongsToNoRequest = header.number == 0 && endsTheConnection(header.code);
    if (header.number != number_ && !belongsToNoRequest) {
        throw broken("it is to request " + std::to_string(header.number) + ", not " +
                     std::to_string(number_));
    }
    if (!isWhollySent && !isHostResult(header.code)) {
        throw broken("it came before the request was sent");
    }
    if (header.length > kLongestAnswer) {
        throw broken("it claims to have " + std::to_string(header.length) + " bytes");
    }
    std::string text = receiveText(*socket_, header.length, deadline);
    if (header.code != QV_OK) {
        throw resultError(header.code, text);
    }
    return text;
}

}  // namespace qv::client
