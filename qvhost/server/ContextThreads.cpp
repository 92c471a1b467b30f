#include "server/ContextThreads.h"

#include <fmt/format.h>

#include <exception>

#include "StandardStreams.h"

namespace qv::host {

namespace {

// Before it sleeps, the thread lets others run: to be woken costs several times what they may send
// meanwhile. What throws here was of one client, whose connection is gone with it.
void runClients(asio::io_context& context) {
    for (;;) {
        try {
            do {
                do {
                    std::this_thread::yield();
                } while (context.poll() != 0);
            } while (context.run_one() != 0);
            return;
        } catch (const std::exception& error) {
            reportError(fmt::format("a client was lost: {}", error.what()));
        }
    }
}

}  // namespace

void ContextThreads::start(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        threads_.emplace_back([this] { runClients(context_); });
    }
}

void ContextThreads::join() {
    work_.reset();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

}  // namespace qv::host
