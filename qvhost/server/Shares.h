// SPDX-License-Identifier: Apache-2.0

// Divides what is scarce, places or bytes, between the users of the host:
//
//   - All users together get the total.
//   - All users but root get fifteen sixteenths of the total.
//   - All users but root and the host's own user get three quarters.
//   - Each of these other users gets a quarter.
//
// So no user can keep all others out. Root and the host's own user find room whatever the other
// users have.
//
//     Shares::User& user = shares.join(uid);
//     if (shares.boundOf(user, 10) == Shares::Bound::None) {
//         shares.take(user, 10);
//     }
//     ...
//     shares.giveBack(user, 10);
//     shares.leave(user);
//
// An object has no lock of its own.
#ifndef QVHOST_SERVER_SHARES_H
#define QVHOST_SERVER_SHARES_H

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <unordered_map>

namespace qv::host {

class Shares {
  public:
    enum class Rank { Other, Owner, Root };

    // The bounds that may leave no room. The first three belong to the ranks: a bound counts what
    // the users of its rank and of the lower ranks have.
    enum class Bound { OfOthers, OfAllButRoot, OfAll, OfOneUser, None };

    struct User {
        uid_t id = 0;
        Rank rank = Rank::Other;
        std::size_t used = 0;
        std::size_t joined = 0;
        bool isMarked = false;  // for the caller
    };

    // `total` is at least 1. `owner` is the host's own user.
    Shares(std::size_t total, uid_t owner);

    // Returns the user, who has nothing yet if nobody has joined for him. Throws std::bad_alloc.
    User& join(uid_t user);

    // Undoes one call of join(). The user is not valid after the last one.
    void leave(User& user) noexcept;

    // Returns what the user has, who need not have joined.
    User userOf(uid_t user) const;

    // Returns a bound that leaves no room for `count` more.
    Bound boundOf(const User& user, std::size_t count) const;

    // Returns the most that the user can have.
    std::size_t mostOf(uid_t user) const;

    void take(User& user, std::size_t count) noexcept;
    void giveBack(User& user, std::size_t count) noexcept;

    // Returns what all users have.
    std::size_t used() const { return used_.back(); }

  private:
    static constexpr std::size_t kRanks = 3;

    Rank rankOf(uid_t user) const;

    const uid_t owner_;
    std::size_t mostOfOne_ = 0;
    std::array<std::size_t, kRanks> most_ = {};  // by rank, with the lower ranks
    std::array<std::size_t, kRanks> used_ = {};  // the same
    std::unordered_map<uid_t, User> users_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_SHARES_H
