// SPDX-License-Identifier: Apache-2.0

#include "server/Shares.h"

#include <algorithm>

namespace qv::host {

Shares::Shares(std::size_t total, uid_t owner)
    : owner_(owner),
      mostOfOne_(std::max<std::size_t>(total / 4, 1)),
      most_{total - total / 4, total - total / 16, total} {}

Shares::Rank Shares::rankOf(uid_t user) const {
    if (user == 0) {
        return Rank::Root;
    }
    return user == owner_ ? Rank::Owner : Rank::Other;
}

Shares::User& Shares::join(uid_t user) {
    User& found = users_.emplace(user, User{user, rankOf(user)}).first->second;
    ++found.joined;
    return found;
}

void Shares::leave(User& user) noexcept {
    if (--user.joined == 0) {
        users_.erase(user.id);
    }
}

Shares::User Shares::userOf(uid_t user) const {
    const auto found = users_.find(user);
    return found == users_.end() ? User{user, rankOf(user)} : found->second;
}

std::size_t Shares::mostOf(uid_t user) const {
    const Rank rank = rankOf(user);
    return rank == Rank::Other ? mostOfOne_ : most_[static_cast<std::size_t>(rank)];
}

Shares::Bound Shares::boundOf(const User& user, std::size_t count) const {
    if (user.rank == Rank::Other && count > mostOfOne_ - user.used) {
        return Bound::OfOneUser;
    }
    for (auto rank = static_cast<std::size_t>(user.rank); rank < kRanks; ++rank) {
        if (count > most_[rank] - used_[rank]) {
            return static_cast<Bound>(rank);
        }
    }
    return Bound::None;
}

void Shares::take(User& user, std::size_t count) noexcept {
    user.used += count;
    for (auto rank = static_cast<std::size_t>(user.rank); rank < kRanks; ++rank) {
        used_[rank] += count;
    }
}

void Shares::giveBack(User& user, std::size_t count) noexcept {
    user.used -= count;
    for (auto rank = static_cast<std::size_t>(user.rank); rank < kRanks; ++rank) {
        used_[rank] -= count;
    }
}

}  // namespace qv::host
