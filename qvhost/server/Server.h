// Runs the resident host: a socket, the plug-in, and threads that serve clients.
//
// Signals: SIGTERM and SIGINT stop the host. It answers the requests that have arrived first, for
// as long as the settings say. A second signal ends the connections, so that no client can delay
// the end. A third signal ends the process even if the plug-in has not returned from a request.
// SIGHUP finalises the plug-in and initialises it again while no request is executed.
#ifndef QVHOST_SERVER_SERVER_H
#define QVHOST_SERVER_SERVER_H

#include <functional>
#include <memory>

#include "server/Plugin.h"
#include "server/Settings.h"

namespace qv::host {

class Server {
  public:
    // Makes the socket. This comes before the plug-in is initialised, because a second host must
    // not touch the plug-in's files. `initialize` initialises the plug-in at the start and at each
    // reload. Throws std::runtime_error.
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
