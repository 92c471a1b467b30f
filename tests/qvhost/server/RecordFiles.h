// What the tests of the record share.
#ifndef QV_TESTS_QVHOST_SERVER_RECORD_FILES_H
#define QV_TESTS_QVHOST_SERVER_RECORD_FILES_H

#include <gmock/gmock.h>

#include <cstdint>
#include <string>

#include "server/Record.h"

namespace qv::host {

// Matches a service with this identifier and address.
inline auto service(int32_t id, const std::string& address) {
    return testing::AllOf(testing::Field(&Service::id, id),
                          testing::Field(&Service::address, address));
}

}  // namespace qv::host

#endif  // QV_TESTS_QVHOST_SERVER_RECORD_FILES_H
