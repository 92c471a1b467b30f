// SPDX-License-Identifier: Apache-2.0

// Stands for a server with a directory of services.
#ifndef QV_BENCH_SUBJECT_H
#define QV_BENCH_SUBJECT_H

#include <string>
#include <vector>

#include "ServerProcess.h"

namespace qv::bench {

enum class Work { Ping, Find, Listing, UnchangedRegistration, Change, Publication };

// Each client changes services of its own.
constexpr int kMostClients = 64;

// The services of a large directory.
constexpr int kLargeDirectory = 10'000;

class Subject {
  public:
    Subject() = default;
    virtual ~Subject() = default;
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;

    // Puts `count` services into the directory and removes all others.
    virtual void hold(int count) = 0;

    // Returns the requests that a client sends for this work, in turn and repeatedly. Each find has
    // an answer of its own. All requests of other work have the same answer, and the first two
    // leave the directory as it was. Throws std::logic_error if the server is not measured with
    // this work.
    virtual std::vector<std::string> requests(Work work, int client) = 0;

    // Sends a request and returns its answer. Throws std::runtime_error if the server did not carry
    // out the request.
    virtual std::string ask(const std::string& request) = 0;

    virtual const std::string& path() const = 0;
    virtual const ServerProcess& process() const = 0;
};

}  // namespace qv::bench

#endif  // QV_BENCH_SUBJECT_H
