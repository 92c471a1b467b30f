// SPDX-License-Identifier: Apache-2.0

// Receives what a host tells its service manager, at the socket that NOTIFY_SOCKET names.
#ifndef QVHOST_NOTIFY_SOCKET_H
#define QVHOST_NOTIFY_SOCKET_H

#include <QvSystem/UnixAddress.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "qvhost/HostProcess.h"

namespace qv::host {

class NotifySocket {
  public:
    // Must be made before the host starts.
    explicit NotifySocket(HostProcess& host)
        : descriptor_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const std::string path = host.files().path("notify");
        const sockaddr_un address = system::unixAddress(path);
        if (::bind(descriptor_, system::generic(address), sizeof address) != 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
        // The bound makes a test fail that waits for nothing.
        const timeval never = {120, 0};
        ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &never, sizeof never);
        host.setVariable("NOTIFY_SOCKET", path);
    }
    ~NotifySocket() { ::close(descriptor_); }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    // Returns the next message, or an empty text if none comes in time.
    std::string receive() const {
        char message[4096];
        const ssize_t size = ::recv(descriptor_, message, sizeof message, 0);
        return size < 0 ? "" : std::string(message, static_cast<std::size_t>(size));
    }

    // Returns the next message that contains the text.
    std::string waitFor(const std::string& text) const {
        std::string message = receive();
        while (!message.empty() && message.find(text) == std::string::npos) {
            message = receive();
        }
        EXPECT_NE(message, "") << "waited in vain for " << text;
        return message;
    }

  private:
    int descriptor_;
};

}  // namespace qv::host

#endif  // QVHOST_NOTIFY_SOCKET_H
