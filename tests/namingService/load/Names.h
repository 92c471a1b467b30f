// What the load test registers: a service for each number from 0, some with negative identifiers,
// whose address tells its identifier and which write gave it. So a listing comes down to a value
// for each service, and an address that was mixed up with another or is not whole is none at all.
#ifndef QV_TESTS_LOAD_NAMES_H
#define QV_TESTS_LOAD_NAMES_H

#include <cstdint>
#include <string>
#include <vector>

#include "Linearizability.h"
#include "namingService.pb.h"
#include "support/LoadedPlugin.h"

namespace qv::tests {

class Names {
  public:
    explicit Names(std::size_t count);

    std::size_t count() const { return addresses_.size(); }
    std::int32_t idOf(std::size_t service) const;
    // All addresses of one service are equally long.
    std::string addressOf(std::size_t service, Value value) const;
    Service service(std::size_t service, Value value) const;
    // Those that are there, in the order in which they are listed.
    Services services(const Values& values) const;

    // The other way. Throws std::runtime_error for an answer that lists anything but such services,
    // in ascending order, or encodes them in any but the one way.
    Values valuesOf(const std::string& answer) const;

  private:
    void read(const qor::kevra::ServiceInfo& listed, std::size_t& next, Values& values) const;

    // Without the value at their ends.
    std::vector<std::string> addresses_;
};

}  // namespace qv::tests

#endif  // QV_TESTS_LOAD_NAMES_H
