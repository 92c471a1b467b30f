// SPDX-License-Identifier: Apache-2.0

#include "ScriptedServer.h"

#include <QvFrame.h>
#include <QvSystem/UnixAddress.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace qv::tests {

namespace {

void check(bool succeeded, const char* attempt) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), attempt);
    }
}

}  // namespace

int listenAt(const std::string& path, int backlog) {
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(descriptor != -1, "cannot make a socket");
    const sockaddr_un address = system::unixAddress(path);
    check(::bind(descriptor, system::generic(address), sizeof address) == 0,
          "cannot bind a socket");
    check(::listen(descriptor, backlog) == 0, "cannot listen");
    return descriptor;
}

std::string frameOf(uint32_t code, uint32_t length, uint32_t number, const std::string& bytes) {
    QvFrameHeader header = {};
    header.code = code;
    header.length = length;
    header.number = number;
    unsigned char head[QV_FRAME_HEADER_SIZE];
    QvFramePutHeader(head, header);
    return std::string(reinterpret_cast<const char*>(head), sizeof head) + bytes;
}

std::string Peer::receiveBytes(std::size_t count) const {
    std::string bytes;
    char part[4096];
    while (bytes.size() < count) {
        const ssize_t got =
            ::recv(descriptor_, part, std::min(sizeof part, count - bytes.size()), 0);
        if (got == -1 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return "";
        }
        bytes.append(part, static_cast<std::size_t>(got));
    }
    return bytes;
}

Request Peer::receive() const {
    const std::string head = receiveBytes(QV_FRAME_HEADER_SIZE);
    if (head.empty()) {
        return {};
    }
    const QvFrameHeader header =
        QvFrameGetHeader(reinterpret_cast<const unsigned char*>(head.data()));
    return {header.code, header.number, receiveBytes(header.length)};
}

void Peer::send(const std::string& bytes) const {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            ::send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count == -1 && errno == EINTR) {
            continue;
        }
        if (count == -1) {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

void Peer::answer(uint32_t result, const std::string& bytes, uint32_t number) const {
    send(frameOf(result, static_cast<uint32_t>(bytes.size()), number, bytes));
}

void Peer::waitForEnd() const {
    while (!receiveBytes(1).empty()) {
    }
}

ScriptedServer::ScriptedServer(std::vector<Script> scripts) : listening_(listenAt(path(), 5)) {
    thread_ = std::thread([listening = listening_, scripts = std::move(scripts)] {
        for (const Script& script : scripts) {
            const int descriptor = ::accept(listening, nullptr, nullptr);
            if (descriptor == -1) {
                return;
            }
            Peer peer(descriptor);
            script(peer);
            ::close(descriptor);
        }
    });
}

ScriptedServer::~ScriptedServer() {
    // Wakes the thread that still waits for a client.
    ::shutdown(listening_, SHUT_RDWR);
    thread_.join();
    ::close(listening_);
}

}  // namespace qv::tests
