// SPDX-License-Identifier: Apache-2.0

// A client that changes its share of a directory without end, until the host is killed. A writer
// keeps account: the changes that the host acknowledged, and the requests that had no answer. So
// the writer tells which directories the next host may have.
#ifndef QVHOST_WRITER_H
#define QVHOST_WRITER_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace qv::host {

class Writer {
  public:
    using Share = std::map<int32_t, std::string>;

    // The writer changes services with these identifiers only: from `first` on, `count` of them.
    // Writers that change the directory together need different `seed`s.
    Writer(int32_t first, int32_t count, unsigned seed);

    // Registers the whole share, and changes it until the connection ends. Counts the answers.
    void run(const std::string& socket, std::atomic<int>& answers);

    // Tells whether the share of a directory, as a host lists it after a kill, is right: it holds
    // every acknowledged change, and the first of the unanswered requests up to any of them. Counts
    // them as acknowledged.
    bool explains(const Share& listed);

    bool owns(int32_t id) const { return id >= first_ && id - first_ < count_; }

    // Returns the share with all acknowledged changes.
    const Share& share() const { return share_; }

    // Returns the first answer that was no acknowledgement, or an empty text.
    const std::string& complaint() const { return complaint_; }

  private:
    struct Request {
        bool isRegistration = true;
        std::vector<std::pair<int32_t, std::string>> services;
    };

    Request makeRequest();
    int32_t pickId();
    static void carryOut(const Request& request, Share& share);

    int32_t first_;
    int32_t count_;
    std::mt19937 random_;
    int64_t serial_ = 0;  // makes every address a new one
    unsigned seed_;
    Share share_;
    std::deque<Request> unanswered_;
    std::string complaint_;
};

}  // namespace qv::host

#endif  // QVHOST_WRITER_H
