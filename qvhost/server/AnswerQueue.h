// SPDX-License-Identifier: Apache-2.0

// Collects answers to a client, which are sent together and in their order. A listing is sent from
// the snapshot's own bytes without a copy, and keeps the snapshot alive until then.
//
//     queue.append(QV_OK, request.number);
//     queue.append(request.number, snapshot);
//     while (queue.size() != 0) {
//         std::string_view pieces[64];
//         const std::size_t count = queue.pieces(pieces, 64);
//         queue.sent(send(socket, pieces, count));
//     }
#ifndef QVHOST_SERVER_ANSWER_QUEUE_H
#define QVHOST_SERVER_ANSWER_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "server/Snapshot.h"

namespace qv::host {

class AnswerQueue {
  public:
    // Appends an answer. Throws std::bad_alloc. Do not send the content of the queue then.
    void append(uint32_t code, uint32_t number, std::string_view bytes = {});

    // Appends the answer to a listing, with these bytes behind the services. Throws std::bad_alloc
    // in the same way.
    void append(uint32_t number, SnapshotPointer snapshot, std::string_view end = {});

    // Removes the answer that was appended last. Nothing may have been sent since.
    void removeLast();

    // Returns the number of bytes that are not sent.
    std::size_t size() const { return size_; }

    // Returns the next bytes to send, in up to `most` pieces. They are valid until the queue
    // changes. There are none if everything is sent.
    std::size_t pieces(std::string_view* pieces, std::size_t most) const;

    // Forgets the next bytes, because they are sent.
    void sent(std::size_t count);

  private:
    struct Listing {
        std::size_t begin = 0;  // position in bytes_ before which the listing is sent
        SnapshotPointer snapshot;
    };

    // A place between two bytes of the answers.
    struct Place {
        std::size_t byte = 0;  // of bytes_
        std::size_t listing = 0;
        std::size_t block = 0;   // of the listing
        std::size_t offset = 0;  // in the block
    };

    void appendHeader(uint32_t code, std::size_t length, uint32_t number);
    std::size_t endOfBytes(const Place& place) const;
    std::string_view pieceAt(const Place& place) const;
    void advance(Place& place, std::size_t count) const;
    void clear();

    std::string bytes_;  // headers and short answers
    std::vector<Listing> listings_;
    Place unsent_;
    std::size_t size_ = 0;
    // The sizes before the last answer.
    std::size_t lastBytes_ = 0;
    std::size_t lastListings_ = 0;
    std::size_t lastSize_ = 0;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_ANSWER_QUEUE_H
