// SPDX-License-Identifier: Apache-2.0

// Clients that subscribe to the directory. Each of them has left at another moment of the past, and
// comes back now. Aborts with a message if one of them then takes the directory for another one.
#ifndef QV_FUZZ_MODELLED_SUBSCRIBERS_H
#define QV_FUZZ_MODELLED_SUBSCRIBERS_H

#include <deque>
#include <optional>

#include "qvhost/HostFiles.h"
#include "server/Questions.h"
#include "server/Recorder.h"

namespace qv::fuzz {

class ModelledSubscribers {
  public:
    // All clients come back, follow the directory up to now, and one more leaves. The directory
    // must not change meanwhile.
    void comeBack(const host::Recorder& recorder);

  private:
    // What a client knows.
    struct Client {
        Services services;
        std::optional<host::SubscriptionWish::Event> last;
    };

    static void follow(Client& client, const host::Recorder& recorder);

    std::deque<Client> clients_ = {Client()};
};

}  // namespace qv::fuzz

#endif  // QV_FUZZ_MODELLED_SUBSCRIBERS_H
