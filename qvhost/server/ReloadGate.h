// Lets any number of requests into the plug-in at once, and keeps them out of it while it is
// finalised and initialised again. A standard shared mutex may let requests in for as long as they
// keep coming, so that a busy host would never reload; here nobody enters once it is closed. And
// who closes it does not wait: it is called when the last request has left.
#ifndef QVHOST_SERVER_RELOAD_GATE_H
#define QVHOST_SERVER_RELOAD_GATE_H

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>

namespace qv::host {

class ReloadGate {
  public:
    // Inside for as long as it lives. Waits while the gate is closed.
    class Pass {
      public:
        explicit Pass(ReloadGate& gate) : gate_(gate) { gate_.enter(); }
        ~Pass() { gate_.leave(); }

        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;

      private:
        ReloadGate& gate_;
    };

    // `emptied` is called once, on this thread or on that of the request that leaves last. It must
    // not throw, nor use the gate before it has returned. Not to be called while closed.
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
