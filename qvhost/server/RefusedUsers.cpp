// SPDX-License-Identifier: Apache-2.0

#include "server/RefusedUsers.h"

#include <iterator>

namespace qv::host {

bool RefusedUsers::isNews(uid_t user, Clock::time_point now) {
    constexpr std::chrono::minutes kSilence(1);
    for (auto each = reported_.begin(); each != reported_.end();) {
        each = now - each->second >= kSilence ? reported_.erase(each) : std::next(each);
    }
    return reported_.emplace(user, now).second;
}

}  // namespace qv::host
