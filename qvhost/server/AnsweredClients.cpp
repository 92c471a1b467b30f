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
        if (first_ == nullptr) {
            return;
        }
        const Clock::time_point now = Clock::now();
        if (hasArrived) {
            until = std::min(now + replyTime_, begin + longest);
        }
        if (now >= until) {
            giveBack();
            return;
        }
        // A client may need this processor to send its change.
        std::this_thread::yield();
    }
}

// Takes what has arrived. Returns false if nothing has.
bool AnsweredClients::takeArrived() noexcept {
    bool hasArrived = false;
    end_ = &first_;
    while (*end_ != nullptr) {
        Client& client = **end_;
        if (client.takeNextChange()) {
            hasArrived = true;
            removeAtEnd();
        } else {
            end_ = &client.nextAnswered_;
        }
    }
    return hasArrived;
}

void AnsweredClients::giveBack() noexcept {
    end_ = &first_;
    while (first_ != nullptr) {
        first_->giveBack();
        removeAtEnd();
    }
}

// Removes the client behind the end. Only this thread uses its pointer to the next one.
void AnsweredClients::removeAtEnd() noexcept {
    std::shared_ptr<Client> next = std::move((*end_)->nextAnswered_);
    *end_ = std::move(next);
}

}  // namespace qv::host
