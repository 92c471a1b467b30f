// Executes the clients' requests on the plug-in, on any number of threads. Reloads the plug-in
// between requests.
#ifndef QVHOST_SERVER_PLUGIN_SERVICE_H
#define QVHOST_SERVER_PLUGIN_SERVICE_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "server/AnswerQueue.h"
#include "server/FrameReader.h"
#include "server/Plugin.h"
#include "server/ReloadGate.h"

namespace qv::host {

class PluginService {
  public:
    // `initialize` initialises the plug-in. It may throw std::exception.
    PluginService(Plugin& plugin, std::function<void()> initialize)
        : plugin_(plugin), initialize_(std::move(initialize)) {}

    void initialize();
    void finalize() { plugin_.finalize(); }

    // Executes a request and appends its answer, also if the plug-in fails. Waits while the plug-in
    // is reloaded. Throws std::bad_alloc if there is no memory for the answer. The request is
    // executed then.
    void answer(const Frame& request, AnswerQueue& answers);

    // Makes requests wait from now on. Calls `emptied` on any thread when no request is executed
    // any more. The caller must call reload() then. That lets requests in again, also if it fails,
    // and returns what went wrong as lines for a person.
    void closeForReload(std::function<void()> emptied) { gate_.close(std::move(emptied)); }
    std::vector<std::string> reload();

    // Tells whether the plug-in is initialised. Only the thread that reloads it may ask.
    bool works() const { return works_; }

  private:
    Plugin& plugin_;
    std::function<void()> initialize_;
    ReloadGate gate_;
    bool works_ = false;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_PLUGIN_SERVICE_H
