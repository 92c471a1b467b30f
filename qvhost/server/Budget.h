// SPDX-License-Identifier: Apache-2.0

// Bounds the bytes that all clients together make the host keep: long requests, the changes that
// were read from them, and long answers that are not sent yet. See Shares.h for what a user may
// have of them.
//
//     Budget budget(bytes, geteuid());
//     Budget::Account account(budget, user);     // one for each client
//     if (account.hold(length, waiter)) ...      // otherwise waiter->granted() is called later
//     account.hold(0);
//
// An account that gets no room waits in a queue. A small wish does not overtake a large one, or the
// large one might wait for ever. An account that waits only for its own user's share lets the
// accounts of other users pass.
//
// An account waits only while it holds nothing, so accounts never wait for each other.
#ifndef QVHOST_SERVER_BUDGET_H
#define QVHOST_SERVER_BUDGET_H

#include <QvSystem/ThreadSafety.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>

#include "server/Shares.h"

namespace qv::host {

class Budget {
  public:
    class Waiter {
      public:
        Waiter() = default;
        virtual ~Waiter() = default;

        Waiter(const Waiter&) = delete;
        Waiter& operator=(const Waiter&) = delete;

        // Called once, on the thread of the account that gave room back. The waiter's account holds
        // now what it waited for. `self` is the waiter.
        virtual void granted(std::shared_ptr<Waiter> self) noexcept = 0;
    };

    // What one client holds. Only one thread at a time may use an account.
    class Account {
      public:
        // Throws std::bad_alloc.
        Account(Budget& budget, uid_t user);
        ~Account();

        Account(const Account&) = delete;
        Account& operator=(const Account&) = delete;

        // Holds `bytes` instead of what the account held, or all that the user can ever have if
        // that is less. Returns false and holds nothing if there is no room, or if others wait for
        // it. Then calls waiter->granted() when the bytes are held, if there is a waiter. Keeps the
        // waiter alive until then. The account must not be used before.
        bool hold(std::size_t bytes, std::shared_ptr<Waiter> waiter = nullptr);

        // Returns how many bytes the account holds.
        std::size_t held() const { return held_; }

      private:
        friend class Budget;

        Budget& budget_;
        Shares::User& user_;
        std::size_t held_ = 0;
        // The rest is for an account that waits, and the budget's lock guards it.
        std::size_t wanted_ = 0;
        std::shared_ptr<Waiter> waiter_;
        Account* previous_ = nullptr;
        Account* next_ = nullptr;
    };

    // `owner` is the host's own user.
    Budget(std::size_t bytes, uid_t owner) : shares_(bytes, owner) {}
    ~Budget() = default;

    Budget(const Budget&) = delete;
    Budget& operator=(const Budget&) = delete;

    // Returns the most that one user can have.
    std::size_t mostOf(uid_t user) const;

    // Returns the bytes that all accounts hold.
    std::size_t held() const;

    // Returns the bytes that were given back since the last call.
    std::size_t takeReturned();

    // Lets go of all waiters and calls none of them. For the end of the host only.
    void abandon();

  private:
    Shares::User& join(uid_t user);
    void leave(Shares::User& user);
    void append(Account& account) QV_REQUIRES(mutex_);
    void remove(Account& account) QV_REQUIRES(mutex_);
    void giveBack(Account& account, std::size_t bytes) QV_REQUIRES(mutex_);
    Account* admit() QV_REQUIRES(mutex_);
    static void tell(Account* admitted);

    mutable system::Mutex mutex_;
    Shares shares_ QV_GUARDED_BY(mutex_);
    std::size_t returned_ QV_GUARDED_BY(mutex_) = 0;
    // The accounts that wait, in the order in which they came.
    Account* first_ QV_GUARDED_BY(mutex_) = nullptr;
    Account* last_ QV_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_BUDGET_H
