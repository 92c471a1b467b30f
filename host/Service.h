// One service of the directory, as the host's own code passes it about.
#ifndef QVHOST_SERVICE_H
#define QVHOST_SERVICE_H

#include <cstdint>
#include <string>

namespace qv::host {

struct Service {
    int32_t id = 0;
    std::string address;  // arbitrary bytes
};

}  // namespace qv::host

#endif  // QVHOST_SERVICE_H
