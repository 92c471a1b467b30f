// SPDX-License-Identifier: Apache-2.0

#include "server/AnsweredClients.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace qv::host {

void AnsweredClients::add(std::shared_ptr<Client> client) noexcept {
    std::shared_ptr<Client>* const end = &client->nextAnswered_;
    *end_ = std::move(client);
    end_ = end;
}

void AnsweredClients::takeNextChanges(Clock::duration longest) noexcept {
    const Clock::time_point begin = Clock::now();
    Clock::time_point until = begin + std::min(replyTime_, longest);
    for (;;) {
        const bool hasArrived = takeArrived();
        const Clock::time_point now = Clock::now();
        if (hasArrived) {
            until = std::min(now + replyTime_, begin + longest);
        }
        if (first_ == nullptr || now >= until) {
            break;
        }
        // The answers may have woken a client on this processor, which the client needs then.
        std::this_thread::yield();
    }
    giveBack();
    end_ = &first_;
}

// Takes what has arrived. Returns false if nothing has.
bool AnsweredClients::takeArrived() noexcept {
    bool hasArrived = false;
    for (std::shared_ptr<Client>* place = &first_; *place != nullptr;) {
        Client& client = **place;
        if (client.takeNextChange()) {
            hasArrived = true;
            remove(*place);
        } else {
            place = &client.nextAnswered_;
        }
    }
    return hasArrived;
}

void AnsweredClients::giveBack() noexcept {
    while (first_ != nullptr) {
        first_->giveBack();
        remove(first_);
    }
}

// Removes a client from the list. The client's own thread may use the client already, but only this
// thread uses `nextAnswered_`.
void AnsweredClients::remove(std::shared_ptr<Client>& place) noexcept {
    std::shared_ptr<Client> next = std::move(place->nextAnswered_);
    place = std::move(next);
}

}  // namespace qv::host
