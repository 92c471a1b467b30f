// SPDX-License-Identifier: Apache-2.0

#include "Subscribers.h"

#include <QvFrame.h>
#include <QvSystem/UnixAddress.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "FrameConnection.h"
#include "RedisSubject.h"
#include "RespMessages.h"

namespace qv::bench {

namespace {

constexpr std::size_t kBufferSize = std::size_t{1024} * 1024;

std::size_t checked(ssize_t result, const char* what) {
    if (result == -1) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return static_cast<std::size_t>(result);
}

// Returns how many services a serialised HostEvent tells to have changed. The event begins with
// these services unless it is a snapshot. Their addresses are short.
std::int64_t changesIn(std::string_view event) {
    constexpr char kChangedField = 2 << 3 | 2;
    constexpr std::size_t kTagAndLength = 2;
    std::int64_t changes = 0;
    while (event.size() > kTagAndLength && event.front() == kChangedField) {
        event.remove_prefix(kTagAndLength + static_cast<unsigned char>(event[1]));
        ++changes;
    }
    return changes;
}

std::int64_t takeFrames(std::string_view& bytes) {
    std::int64_t changes = 0;
    while (bytes.size() >= QV_FRAME_HEADER_SIZE) {
        const std::size_t length =
            QvFrameGetHeader(reinterpret_cast<const unsigned char*>(bytes.data())).length;
        if (bytes.size() - QV_FRAME_HEADER_SIZE < length) {
            break;
        }
        changes += changesIn(bytes.substr(QV_FRAME_HEADER_SIZE, length));
        bytes.remove_prefix(QV_FRAME_HEADER_SIZE + length);
    }
    return changes;
}

// Connects and subscribes a client.
system::Descriptor subscribed(const std::string& path, const std::string& request) {
    system::Descriptor client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    checked(client.get(), "socket");
    const sockaddr_un address = system::unixAddress(path);
    checked(connect(client.get(), system::generic(address), sizeof address), "connect");
    checked(send(client.get(), request.data(), request.size(), MSG_NOSIGNAL), "send");
    return client;
}

void watch(const system::Descriptor& readable, const system::Descriptor& descriptor, void* data) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.ptr = data;
    checked(epoll_ctl(readable.get(), EPOLL_CTL_ADD, descriptor.get(), &event), "epoll_ctl");
}

}  // namespace

EventStream hostEvents() {
    return {frame(QV_HOST_COMMAND_SUBSCRIBE, ""), takeFrames};
}

EventStream uncountedHostEvents() {
    return {frame(QV_HOST_COMMAND_SUBSCRIBE, ""), [](std::string_view& bytes) {
                bytes = {};
                return std::int64_t{0};
            }};
}

EventStream redisEvents(const std::string& text) {
    // Redis sends a message in the form of a command, and confirms the subscription in front of the
    // first message.
    const std::string channel = kChannel;
    const std::size_t size = resp::command({"message", channel, text}).size();
    const std::string confirmation = "*3\r\n$9\r\nsubscribe\r\n$" + std::to_string(channel.size()) +
                                     resp::kEnd + channel + resp::kEnd + ":1" + resp::kEnd;
    return {resp::command({"SUBSCRIBE", channel}), [size, confirmation](std::string_view& bytes) {
                if (bytes.substr(0, confirmation.size()) == confirmation) {
                    bytes.remove_prefix(confirmation.size());
                }
                const std::size_t count = bytes.size() / size;
                bytes.remove_prefix(count * size);
                return static_cast<std::int64_t>(count);
            }};
}

Subscribers::Subscribers(const std::string& path, int count, EventStream stream)
    : stream_(std::move(stream)),
      end_(eventfd(0, EFD_CLOEXEC)),
      readable_(epoll_create1(EPOLL_CLOEXEC)),
      buffer_(kBufferSize) {
    for (int i = 0; i < count; ++i) {
        clients_.push_back({subscribed(path, stream_.request), {}, false});
    }
    watch(readable_, end_, nullptr);
    for (Client& client : clients_) {
        watch(readable_, client.socket, &client);
    }
    std::future<void> areAnswered = areAnswered_.get_future();
    thread_ = std::thread([this] { run(); });
    areAnswered.wait();
}

Subscribers::~Subscribers() {
    static_cast<void>(eventfd_write(end_.get(), 1));
    thread_.join();
}

std::int64_t Subscribers::events() const {
    if (hasLost_) {
        throw std::runtime_error("a server ended a subscription");
    }
    return events_;
}

void Subscribers::run() {
    constexpr int kMostEvents = 64;
    std::array<epoll_event, kMostEvents> ready = {};
    for (;;) {
        const int count = epoll_wait(readable_.get(), ready.data(), kMostEvents, -1);
        for (int i = 0; i < count; ++i) {
            auto* const client = static_cast<Client*>(ready[static_cast<std::size_t>(i)].data.ptr);
            if (client == nullptr) {
                return;
            }
            read(*client);
        }
    }
}

void Subscribers::read(Client& client) {
    std::copy(client.rest.begin(), client.rest.end(), buffer_.begin());
    const std::size_t begin = client.rest.size();
    const ssize_t count =
        recv(client.socket.get(), buffer_.data() + begin, buffer_.size() - begin, 0);
    if (!std::exchange(client.isAnswered, true) && ++answered_ == clients_.size()) {
        areAnswered_.set_value();
    }
    if (count <= 0) {
        hasLost_ = true;
        client.socket = system::Descriptor();
        return;
    }
    std::string_view bytes(buffer_.data(), begin + static_cast<std::size_t>(count));
    events_ += stream_.take(bytes);
    client.rest = bytes;
}

}  // namespace qv::bench
