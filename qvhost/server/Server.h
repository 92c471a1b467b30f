// The resident host: a socket, the plug-in behind it, and threads that serve its clients.
//
// Signals: SIGTERM and SIGINT stop it. Requests that have arrived are answered first, for as long
// as the settings give them; a second signal cuts that short, so that no client can hold it, and a
// third one ends the process though the plug-in has not come back from a request. SIGHUP finalises
// the plug-in and initialises it again, between two requests.
#ifndef QVHOST_SERVER_SERVER_H
#define QVHOST_SERVER_SERVER_H

#include <functional>
#include <memory>

#include "server/Plugin.h"
#include "server/Settings.h"

namespace qv::host {

class Server {
  public:
    // Takes the socket, before the plug-in is initialised: a second host must not touch its files.
    // `initialize` initialises the plug-in, at the start and whenever it is reloaded. Throws
    // std::runtime_error.
    Server(Plugin& plugin, ServerSettings settings, std::function<void()> initialize);
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Serves until a signal ends it; the plug-in is finalised then. Throws std::runtime_error and
    // what `initialize` throws. To be called once.
    void run();

  private:
    class Work;

    std::unique_ptr<Work> work_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_SERVER_H
