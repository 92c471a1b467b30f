// SPDX-License-Identifier: Apache-2.0

#include "RpcbindSubject.h"

#include <unistd.h>

#include <algorithm>
#include <asio/buffer.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <system_error>

#include "RpcMessages.h"
#include "support/Services.h"

namespace qv::bench {

namespace {

constexpr char kProgram[] = "/sbin/rpcbind";

// Makes a socket for every transport. rpcbind itself would open a missing one to the network.
std::vector<Descriptor> socketsFor(const std::string& path) {
    if (access(kProgram, X_OK) != 0) {
        throw std::system_error(errno, std::generic_category(), kProgram);
    }
    std::vector<Descriptor> sockets = listenOn(path);
    addLoopbackSockets(sockets);
    return sockets;
}

}  // namespace

RpcbindSubject::RpcbindSubject() : process_({kProgram, "-f"}, socketsFor(path_)) {
    socket_.connect(asio::local::stream_protocol::endpoint(path_));
    ownCount_ = count();
}

void RpcbindSubject::hold(int count) {
    for (int program = 0; program < mostPrograms_; ++program) {
        exchange(rpc::unset(program), nullptr);
    }
    mostPrograms_ = std::max(mostPrograms_, count);
    for (int program = 0; program < count - ownCount_; ++program) {
        ask(rpc::set(program, addressOf(program)));
    }
    if (this->count() != count) {
        throw std::runtime_error("rpcbind does not have the programs that it was given");
    }
}

std::vector<std::string> RpcbindSubject::requests(Work work, int client) {
    switch (work) {
        case Work::Ping:
            return {rpc::nothing()};
        case Work::Listing:
            return {rpc::dump()};
        case Work::UnchangedRegistration:
            return {rpc::set(client, addressOf(client))};
        case Work::Change:
            return {rpc::unset(client), rpc::set(client, addressOf(client))};
        case Work::Find:
        case Work::Publication:
            break;
    }
    throw std::logic_error("no such work");
}

std::string RpcbindSubject::ask(const std::string& request) {
    std::string whole;
    const std::string answer = exchange(request, &whole);
    const bool hasResult = request != rpc::nothing() && request != rpc::dump();
    if (!rpc::isAccepted(answer) || (hasResult && !rpc::isTrue(answer))) {
        throw std::runtime_error("rpcbind refused a call");
    }
    return whole;
}

int RpcbindSubject::count() {
    return rpc::countOf(exchange(rpc::dump(), nullptr));
}

std::string RpcbindSubject::exchange(const std::string& request, std::string* whole) {
    asio::write(socket_, asio::buffer(request));
    std::string answer;
    rpc::Mark mark;
    while (!mark.last) {
        std::string markBytes(rpc::kMarkSize, '\0');
        asio::read(socket_, asio::buffer(markBytes));
        mark = rpc::markOf(markBytes);
        std::string record(mark.length, '\0');
        asio::read(socket_, asio::buffer(record));
        answer += record;
        if (whole != nullptr) {
            *whole += markBytes + record;
        }
    }
    return answer;
}

}  // namespace qv::bench
