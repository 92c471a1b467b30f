// Collects answers to a client, which are sent together and in their order. A long answer is sent
// from the plug-in's own buffer without a copy.
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
    // Each throws std::bad_alloc. Do not send the content of the queue then.
    void append(uint32_t code, uint32_t number, std::string_view bytes = {});
    void append(uint32_t number, Plugin::Answer answer);

    // Returns the bytes to send, in pieces. They are valid until the queue changes.
    std::vector<std::string_view> pieces() const;

    // Returns the number of bytes.
    std::size_t size() const { return size_; }

    void clear();

  private:
    // Holds headers and short answers, and the long answer after them.
    struct Part {
        std::string bytes;
        std::optional<Plugin::Answer> last;
    };

    // Returns the bytes of the part that has no long answer yet.
    std::string& bytes();
    void appendHeader(uint32_t code, std::size_t length, uint32_t number);

    std::list<Part> parts_;
    std::size_t size_ = 0;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_ANSWER_QUEUE_H
