#include "server/ClientThreads.h"

#include <algorithm>
#include <system_error>

#include "server/ClientSocket.h"

namespace qv::host {

namespace {

// Who changes without end keeps one at the disk, and a second one another at the lock.
constexpr std::size_t kFewestSharing = 4;

}  // namespace

// With what a context opens for its first socket: a shortage is better met now than when a client
// comes.
ClientThread::ClientThread() {
    try {
        const ClientSocket first(context());
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "cannot make a thread for clients");
    }
}

ClientThreads::ClientThreads(std::size_t count)
    : reading_(count),
      sharingCount_(std::max(count, kFewestSharing)),
      sharing_(static_cast<int>(sharingCount_)) {}

void ClientThreads::start() {
    for (ClientThread& reader : reading_) {
        reader.threads().start(1);
    }
    sharing_.start(sharingCount_);
}

void ClientThreads::join() {
    sharing_.join();
    for (ClientThread& reader : reading_) {
        reader.threads().join();
    }
}

void ClientThreads::abandon() {
    for (ClientThread& reader : reading_) {
        reader.context().stop();
    }
    sharing_.context().stop();
    join();
}

ClientThread& ClientThreads::next() {
    return *std::min_element(reading_.begin(), reading_.end(),
                             [](const ClientThread& one, const ClientThread& other) {
                                 return one.clients() < other.clients();
                             });
}

}  // namespace qv::host
