// Lets any number of requests into the plug-in at once, and makes them wait while the plug-in is
// reloaded. A standard shared mutex may let requests in for as long as they keep coming, so that a
// busy host would never reload. This gate lets no request in once it is closed. The thread that
// closes the gate does not wait, but is called when the last request has left.
#ifndef QVHOST_SERVER_RELOAD_GATE_H
#define QVHOST_SERVER_RELOAD_GATE_H

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>

namespace qv::host {

class ReloadGate {
  public:
    // Is inside the gate for as long as it lives. Waits while the gate is closed.
    class Pass {
      public:
        explicit Pass(ReloadGate& gate) : gate_(gate) { gate_.enter(); }
        ~Pass() { gate_.leave(); }

        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;

      private:
        ReloadGate& gate_;
    };

    // Closes the gate. Calls `emptied` once, on this thread or on that of the last request to
    // leave. It must neither throw nor use the gate. Must not be called while the gate is closed.
    void close(std::function<void()> emptied);

    void open();

  private:
    void enter();
    void leave();

    std::mutex mutex_;
    std::condition_variable opened_;
    bool closed_ = false;
    std::size_t inside_ = 0;
    std::function<void()> emptied_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_RELOAD_GATE_H
