// SPDX-License-Identifier: Apache-2.0

#include "server/Budget.h"

#include <algorithm>
#include <utility>

namespace qv::host {

Budget::Account::Account(Budget& budget, uid_t user) : budget_(budget), user_(budget.join(user)) {}

Budget::Account::~Account() {
    hold(0);
    budget_.leave(user_);
}

bool Budget::Account::hold(std::size_t bytes, std::shared_ptr<Waiter> waiter) {
    if (bytes == held_) {
        return true;
    }
    Account* admitted = nullptr;
    bool isHeld = true;
    {
        const system::MutexLock lock(budget_.mutex_);
        bytes = std::min(bytes, budget_.shares_.mostOf(user_.id));
        if (bytes <= held_) {
            budget_.giveBack(*this, held_ - bytes);
            admitted = budget_.admit();
        } else {
            budget_.giveBack(*this, held_);
            wanted_ = bytes;
            budget_.append(*this);
            admitted = budget_.admit();
            isHeld = held_ == bytes;
            if (!isHeld && waiter == nullptr) {
                budget_.remove(*this);
            }
            if (!isHeld) {
                waiter_ = std::move(waiter);
            }
        }
    }
    tell(admitted);
    return isHeld;
}

std::size_t Budget::mostOf(uid_t user) const {
    const system::MutexLock lock(mutex_);
    return shares_.mostOf(user);
}

std::size_t Budget::held() const {
    const system::MutexLock lock(mutex_);
    return shares_.used();
}

std::size_t Budget::takeReturned() {
    const system::MutexLock lock(mutex_);
    return std::exchange(returned_, 0);
}

void Budget::abandon() {
    for (;;) {
        std::shared_ptr<Waiter> waiter;  // goes when the lock is free, and its account with it
        const system::MutexLock lock(mutex_);
        if (first_ == nullptr) {
            return;
        }
        waiter = std::move(first_->waiter_);
        remove(*first_);
    }
}

Shares::User& Budget::join(uid_t user) {
    const system::MutexLock lock(mutex_);
    return shares_.join(user);
}

void Budget::leave(Shares::User& user) {
    const system::MutexLock lock(mutex_);
    shares_.leave(user);
}

void Budget::append(Account& account) {
    account.previous_ = last_;
    account.next_ = nullptr;
    (last_ == nullptr ? first_ : last_->next_) = &account;
    last_ = &account;
}

void Budget::remove(Account& account) {
    (account.previous_ == nullptr ? first_ : account.previous_->next_) = account.next_;
    (account.next_ == nullptr ? last_ : account.next_->previous_) = account.previous_;
}

void Budget::giveBack(Account& account, std::size_t bytes) {
    shares_.giveBack(account.user_, bytes);
    account.held_ -= bytes;
    returned_ += bytes;
}

// Gives room to accounts that wait. Returns those that must be told of it, as a list.
Budget::Account* Budget::admit() {
    for (Account* account = first_; account != nullptr; account = account->next_) {
        account->user_.isMarked = false;
    }
    Account* admitted = nullptr;
    Account** end = &admitted;
    int fullRank = -1;  // users of this rank and of lower ranks have to wait
    for (Account* account = first_; account != nullptr;) {
        Account& next = *std::exchange(account, account->next_);
        if (next.user_.isMarked || static_cast<int>(next.user_.rank) <= fullRank) {
            continue;
        }
        const Shares::Bound bound = shares_.boundOf(next.user_, next.wanted_);
        if (bound == Shares::Bound::OfOneUser) {
            next.user_.isMarked = true;
        } else if (bound != Shares::Bound::None) {
            fullRank = static_cast<int>(bound);
        } else {
            shares_.take(next.user_, next.wanted_);
            next.held_ = next.wanted_;
            remove(next);
            next.next_ = nullptr;
            if (next.waiter_ != nullptr) {
                *end = &next;
                end = &next.next_;
            }
        }
    }
    return admitted;
}

void Budget::tell(Account* admitted) {
    while (admitted != nullptr) {
        // The account may be used, or go, when its waiter is told.
        const std::shared_ptr<Waiter> waiter = std::move(admitted->waiter_);
        admitted = admitted->next_;
        waiter->granted(waiter);
    }
}

}  // namespace qv::host
