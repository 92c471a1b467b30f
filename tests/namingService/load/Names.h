// SPDX-License-Identifier: Apache-2.0

// Names the services of the load test. There is a service for each number from 0; some identifiers
// are negative. An address contains the identifier and the value that a write gave the service. A
// listing therefore gives a value for each service, and a cut or exchanged address is noticed.
#ifndef QV_TESTS_LOAD_NAMES_H
#define QV_TESTS_LOAD_NAMES_H

#include <cstdint>
#include <string>
#include <vector>

#include "Judge.h"
#include "namingService.pb.h"
#include "support/LoadedPlugin.h"

namespace qv::tests {

class Names {
  public:
    explicit Names(std::size_t count);

    std::size_t count() const { return addresses_.size(); }
    std::int32_t idOf(std::size_t service) const;
    // All addresses of a service have the same length.
    std::string addressOf(std::size_t service, Value value) const;
    Service service(std::size_t service, Value value) const;
    // Returns the services whose values are not absent, in the order of a listing.
    Services services(const Values& values) const;

    // Returns the values in the answer to a listing. Throws std::runtime_error if the answer lists
    // other services, breaks the ascending order, or has another encoding.
    Values valuesOf(const std::string& answer) const;

  private:
    void read(const qor::kevra::ServiceInfo& listed, std::size_t& next, Values& values) const;

    // The addresses without the values at their ends.
    std::vector<std::string> addresses_;
};

}  // namespace qv::tests

#endif  // QV_TESTS_LOAD_NAMES_H
