// SPDX-License-Identifier: Apache-2.0

// Decides which refusals the journal hears of: one a minute for each user. So a user who may not
// use the host cannot fill the journal.
#ifndef QVHOST_SERVER_REFUSED_USERS_H
#define QVHOST_SERVER_REFUSED_USERS_H

#include <sys/types.h>

#include <chrono>
#include <map>

namespace qv::host {

class RefusedUsers {
  public:
    using Clock = std::chrono::steady_clock;

    // Tells whether to report that the host refused the user just now. Throws std::bad_alloc.
    bool isNews(uid_t user, Clock::time_point now);

  private:
    std::map<uid_t, Clock::time_point> reported_;  // in the last minute
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_REFUSED_USERS_H
