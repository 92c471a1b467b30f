#include "ClientThreads.h"

#include <algorithm>

namespace qv::host {

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
