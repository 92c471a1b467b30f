// SPDX-License-Identifier: Apache-2.0

// Runs the resident host: the directory with its record, the plug-in that follows it, a socket, and
// threads that serve clients.
//
// Signals: SIGTERM and SIGINT stop the host. It answers the requests that have arrived first, for
// as long as the settings say, and lets the plug-in's file catch up. A second signal ends the
// connections, so that no client can delay the end. A third signal ends the process even if the
// plug-in has not returned; the record holds what was acknowledged. SIGHUP starts the plug-in
// again, which takes an edited file over; clients notice nothing.
#ifndef QVHOST_SERVER_SERVER_H
#define QVHOST_SERVER_SERVER_H

#include <functional>
#include <memory>

#include "server/Plugin.h"
#include "server/Settings.h"

namespace qv::host {

class Server {
  public:
    // Locks the configuration, opens the record and makes the socket. `initialize` initialises the
    // plug-in at the start, at each reload and after a repair of its file. Throws
    // std::runtime_error, before anything is touched if another host has the configuration.
    Server(Plugin& plugin, ServerSettings settings, std::function<void()> initialize);
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Serves until a signal stops the host, and finalises the plug-in. Throws std::runtime_error
    // and what `initialize` throws. Call it once.
    void run();

  private:
    class Work;

    std::unique_ptr<Work> work_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_SERVER_H
