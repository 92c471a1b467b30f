// Decides whether calls that overlapped on several threads can have happened one after another.
//
// There are some keys with a value each. A call writes some of the keys in one step, or reads all
// of them in one step. Each call has the times of its invocation and its response. A history is
// linearizable if every call can have an instant between these two times such that each read finds
// the values of the writes before it, in the order of the instants. Such an order excludes lost
// writes, stale reads, reads from the future, half writes, and readers that disagree about the
// order of two writes.
//
// The algorithm walks through the invocations and responses in the order of time. It keeps every
// configuration that is possible so far. A configuration consists of the values of the keys and the
// set of the pending calls that have happened already. The first configuration has the initial
// values and no calls.
//
//   * At an invocation, the call becomes pending. It may happen at any time from now on.
//   * At a response, the call must have happened. A configuration in which it has not happened is
//     replaced by all configurations that follow from it when pending calls happen, in any order,
//     up to and including this call. If no configuration is left, no order explains the response,
//     and the history is not linearizable.
//
// The algorithm may delay calls until a response needs them: in the right order, all calls up to
// the one that responds are invoked by then, so some configuration follows this order. A read
// changes no value, so a pending read happens as soon as the values are those that it read. Only
// writes are tried in different orders.
//
// The result is exact for any values. Writes may be equal: a removal writes kAbsent, and a value
// may be written again. If each value is written once, a read identifies its write, so the check
// finds more and the configurations stay few. The work grows linearly with the length of the
// history, and exponentially with the number of pending writes. The load test therefore judges a
// directory of thousands of keys in groups. The part of a linearizable history that concerns a
// group of keys is linearizable itself. A group of one key shows lost and stale values; a group of
// several keys also shows half writes.
#ifndef QV_TESTS_LINEARIZABILITY_H
#define QV_TESTS_LINEARIZABILITY_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

namespace qv::tests {

using Value = std::uint32_t;
constexpr Value kAbsent = 0;

// The value of each key, in the order of the keys.
using Values = std::vector<Value>;

// The new values of some keys. The last value of a key counts.
using Write = std::vector<std::pair<std::size_t, Value>>;
// The values that a read found.
using Read = Values;

// Two calls overlap if the response of one and the invocation of the other have the same time.
struct Call {
    std::int64_t invoked = 0;
    std::int64_t responded = 0;
    std::variant<Write, Read> action;
};

// Returns nothing if the history is linearizable, otherwise the first call whose response no order
// explains. Throws std::runtime_error if more than 32 calls are pending at once, or if there are
// too many configurations.
std::optional<std::size_t> unexplainedCall(const Values& initial, const std::vector<Call>& calls);

}  // namespace qv::tests

#endif  // QV_TESTS_LINEARIZABILITY_H
