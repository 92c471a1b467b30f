// The plug-in as the clients use it: answers their requests, on as many threads as there are, and
// is finalised and initialised again in between.
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
    // `initialize` initialises the plug-in, or throws std::exception.
    PluginService(Plugin& plugin, std::function<void()> initialize)
        : plugin_(plugin), initialize_(std::move(initialize)) {}

    void initialize();
    void finalize() { plugin_.finalize(); }

    // Executes a request and appends its answer, whatever the plug-in makes of it. Waits while the
    // plug-in is reloaded. Throws std::bad_alloc when there is no memory for the answer; what was
    // asked for is done then.
    void answer(const Frame& request, AnswerQueue& answers);

    // Keeps requests out from now on; `emptied` is called, on any thread, when none is executed any
    // more. Then reload() is to be called, which lets them in again whether or not it worked. It
    // returns what went wrong, as lines for a person.
    void closeForReload(std::function<void()> emptied) { gate_.close(std::move(emptied)); }
    std::vector<std::string> reload();

    // Whether the plug-in is initialised. For the thread that reloads it.
    bool works() const { return works_; }

  private:
    Plugin& plugin_;
    std::function<void()> initialize_;
    ReloadGate gate_;
    bool works_ = false;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_PLUGIN_SERVICE_H
