// SPDX-License-Identifier: Apache-2.0

// Changes of one client, which are made and answered in their order.
#ifndef QVHOST_SERVER_CHANGE_BATCH_H
#define QVHOST_SERVER_CHANGE_BATCH_H

#include <cstdint>
#include <vector>

#include "server/AnsweredClients.h"
#include "server/Door.h"

namespace qv::host {

class ChangeBatch {
  public:
    struct Item {
        uint32_t number = 0;  // of the request
        Change change;
        Outcome outcome;         // valid once the batch is answered
        bool isDecided = false;  // the door refused the request, so there is no change to make
    };

    ChangeBatch() = default;
    virtual ~ChangeBatch() = default;

    ChangeBatch(const ChangeBatch&) = delete;
    ChangeBatch& operator=(const ChangeBatch&) = delete;

    // The recorder's thread calls this when every item has its outcome. Adds the client to the
    // clients if the recorder's thread may take its next change.
    virtual void answered(AnsweredClients& clients) noexcept = 0;

    std::vector<Item> items;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_CHANGE_BATCH_H
