// SPDX-License-Identifier: Apache-2.0

// Decides whether commands that overlapped on several threads can have been executed one after
// another, in an order that fits their times.
//
// A change writes values under some keys in one step. A reading takes the values of all keys in one
// step. Each thread marks its changes in the directory, so a reading also tells how many changes of
// each thread it saw. The readings therefore have an order, and the changes between two readings
// are known. An order of all commands exists only if
//
//   * of any two readings, one saw all changes that the other saw;
//   * a reading saw each change that ended before the reading began, or before a change began that
//     the reading saw;
//   * no reading saw a change that began after the reading ended, and no later reading saw less;
//   * each key has the value of a change that can have been the last one since the reading before,
//     and two changes never were each the last one for another key.
//
// So lost writes, stale readings, half writes and readers that disagree are noticed.
#ifndef QV_TESTS_LOAD_JUDGE_H
#define QV_TESTS_LOAD_JUDGE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qv::tests {

using Value = std::uint32_t;
constexpr Value kAbsent = 0;

// The value of each key, in the order of the keys.
using Values = std::vector<Value>;

// The time of a command, from before its call to after its return. Two commands whose intervals
// touch overlap.
struct Interval {
    std::int64_t begin = 0;
    std::int64_t end = 0;
};

struct Change {
    Interval time;
    std::vector<std::size_t> keys;
    // The new value of all these keys. kAbsent removes them.
    Value value = kAbsent;
};

struct Reading {
    Interval time;
    // How many changes of each thread the reading saw.
    std::vector<std::size_t> seen;
    Values values;
};

// Returns nothing if an order is possible, otherwise what contradicts it. `changes` holds the
// changes of each thread in their order. `initial` holds the values before all changes.
std::optional<std::string> contradiction(const Values& initial,
                                         const std::vector<std::vector<Change>>& changes,
                                         std::vector<Reading> readings);

}  // namespace qv::tests

#endif  // QV_TESTS_LOAD_JUDGE_H
