#include "ClientThreads.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>

#include "StandardStreams.h"

namespace qv::host {

namespace {

// What throws here was of one client, whose connection is gone with it.
void runClients(asio::io_context& context) {
    for (;;) {
        try {
            context.run();
            return;
        } catch (const std::exception& error) {
            reportError(fmt::format("a client was lost: {}", error.what()));
        }
    }
}

}  // namespace

void ContextThreads::start(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        threads_.emplace_back([this] { runClients(context_); });
    }
}

void ContextThreads::join() {
    work_.reset();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

void ContextThreads::abandon() {
    context_.stop();
    join();
}

ClientThreads::ClientThreads(std::size_t count)
    : reading_(count), sharing_(static_cast<int>(count)) {}

void ClientThreads::start() {
    for (ClientThread& reader : reading_) {
        reader.thread().start(1);
    }
    sharing_.start(reading_.size());
}

void ClientThreads::join() {
    sharing_.join();
    for (ClientThread& reader : reading_) {
        reader.thread().join();
    }
}

void ClientThreads::abandon() {
    sharing_.abandon();
    for (ClientThread& reader : reading_) {
        reader.thread().abandon();
    }
}

ClientThread& ClientThreads::next() {
    return *std::min_element(reading_.begin(), reading_.end(),
                             [](const ClientThread& one, const ClientThread& other) {
                                 return one.clients() < other.clients();
                             });
}

}  // namespace qv::host
