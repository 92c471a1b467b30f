// SPDX-License-Identifier: Apache-2.0

// Helps the model of the resident host to check what may be the case.
#ifndef QV_FUZZ_POSSIBILITIES_H
#define QV_FUZZ_POSSIBILITIES_H

#include <algorithm>
#include <vector>

#include "support/LongestFile.h"
#include "support/Require.h"

namespace qv::fuzz {

// Lifts the limit for files before it aborts, so that the fuzzer can write its finding.
inline void check(bool holds, const char* what) {
    if (!holds) {
        const tests::LongestFile unlimited(RLIM_INFINITY);
        require(false, what);
    }
}

template <class Value>
bool holds(const std::vector<Value>& values, const Value& value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

template <class Value>
void add(std::vector<Value>& values, const Value& value) {
    if (!holds(values, value)) {
        values.push_back(value);
    }
}

// Joins two lists of what is possible. An empty one allows everything.
template <class Value>
void widen(std::vector<Value>& values, const std::vector<Value>& others) {
    if (values.empty() || others.empty()) {
        values.clear();
        return;
    }
    for (const Value& other : others) {
        add(values, other);
    }
}

template <class Value>
bool allows(const std::vector<Value>& values, const Value& value) {
    return values.empty() || holds(values, value);
}

}  // namespace qv::fuzz

#endif  // QV_FUZZ_POSSIBILITIES_H
