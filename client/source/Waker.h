// SPDX-License-Identifier: Apache-2.0

// Wakes whoever waits for a subscription: makes one descriptor readable when a socket is ready or a
// time has come. The descriptor stays the same while sockets come and go.
#ifndef QV_CLIENT_WAKER_H
#define QV_CLIENT_WAKER_H

#include <QvSystem/Descriptor.h>

#include "Deadline.h"

namespace qv::client {

class Waker {
  public:
    // Throws Error of kind CannotConnect if the system has no descriptors left.
    Waker();

    // Returns the descriptor that becomes readable.
    int descriptor() const noexcept { return queue_.get(); }

    // Wakes when the socket has bytes or its end to receive, and if `forSending` is set also when
    // it takes bytes. Replaces what was asked for the socket before.
    void watch(int socket, bool forSending);

    // Wakes for the socket no longer. The socket must still be open.
    void ignore(int socket) noexcept;

    // Wakes at this time, and at no time that was set before.
    void wakeAt(const Deadline& time);

    // Returns when the descriptor is readable or the deadline has passed, or earlier.
    void wait(const Deadline& deadline) const;

  private:
    system::Descriptor queue_;
    system::Descriptor timer_;  // Linux only
};

}  // namespace qv::client

#endif  // QV_CLIENT_WAKER_H
