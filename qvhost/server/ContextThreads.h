// Threads that run one Asio context.
#ifndef QVHOST_SERVER_CONTEXT_THREADS_H
#define QVHOST_SERVER_CONTEXT_THREADS_H

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <cstddef>
#include <thread>
#include <vector>

namespace qv::host {

class ContextThreads {
  public:
    // The hint is that of the context.
    explicit ContextThreads(int hint) : context_(hint) {}

    asio::io_context& context() { return context_; }

    // Throws std::system_error.
    void start(std::size_t count);

    // Waits until nothing is under way, or, where the context is stopped, until nothing runs; what
    // is left goes with the context.
    void join();

  private:
    asio::io_context context_;
    asio::executor_work_guard<asio::io_context::executor_type> work_{context_.get_executor()};
    std::vector<std::thread> threads_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_CONTEXT_THREADS_H
