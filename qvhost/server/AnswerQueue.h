// Answers on their way to a client. They go out together, in their order; a long one is sent from
// the plug-in's own buffer, without a copy.
#ifndef QVHOST_SERVER_ANSWER_QUEUE_H
#define QVHOST_SERVER_ANSWER_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/Plugin.h"

namespace qv::host {

class AnswerQueue {
  public:
    // Each throws std::bad_alloc. What the queue holds is not to be sent then.
    void append(uint32_t code, uint32_t number, std::string_view bytes = {});
    void append(uint32_t number, Plugin::Answer answer);

    // What to send, piece after piece. Stands until the queue is changed.
    std::vector<std::string_view> pieces() const;

    // In bytes.
    std::size_t size() const { return size_; }

    void clear();

  private:
    // Headers and short answers, and the long answer that ends them.
    struct Part {
        std::string bytes;
        std::optional<Plugin::Answer> last;
    };

    // The part that is still open.
    std::string& bytes();
    void appendHeader(uint32_t code, std::size_t length, uint32_t number);

    std::list<Part> parts_;
    std::size_t size_ = 0;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_ANSWER_QUEUE_H
