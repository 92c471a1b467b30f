// SPDX-License-Identifier: Apache-2.0

// Aborts with a message if a property does not hold. A fuzzer reports that as a finding.
#ifndef QV_FUZZ_REQUIRE_H
#define QV_FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>

namespace qv::fuzz {

inline void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

}  // namespace qv::fuzz

#endif  // QV_FUZZ_REQUIRE_H
