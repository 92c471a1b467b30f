// Decides whether calls that ran on several threads at once can have happened one after another.
//
// The calls are of a register file, a few keys with a value each: a call writes some of the keys in
// one step, or reads all of them in one step. Each has the times of its invocation and its
// response. A history is linearizable if every call can be given an instant between these two times
// so that, taken in the order of the instants, each read finds exactly what the writes before it
// left. That one order forbids everything a lock forbids: a write that is lost, a read of what was
// overwritten before the read began, a read of what is not written yet, half of a write, and two
// reads that saw two writes in different orders.
//
// How it is decided. Walk the invocations and responses in the order of time, and carry along every
// way in which the calls up to here can have happened. Such a way, a configuration, is the values
// of the keys and the set of the calls under way whose instant has passed already; of how it came
// about nothing else matters for the rest. At first there is one: the initial values, no call. Then
//
//   * at an invocation, the call joins those under way. Its instant may be any time from now on.
//   * at a response, its instant must have passed. A configuration in which it has not is replaced
//     by all those that it can become by letting calls under way happen, in any order, up to and
//     including this one. None left means that no order explains this response: not linearizable.
//
// To let calls happen no earlier than a response asks for it loses nothing: whichever order is the
// right one, its calls up to the one that responds were all invoked by then, so some configuration
// follows it. A read leaves the values alone, so it may as well happen at the first moment under
// way at which they are what it read; only writes are tried in different orders.
//
// That is exact, for any values. Nothing is asked of a write to be told from another: to remove a
// key is to write kAbsent, however many do that at once, and a value may be written again. Values
// that are written once make it sharp, as a read then names its write, and fast, as the reads keep
// the configurations few. The work grows with the length of the history, and only with the number
// of writes under way at one moment in the worst way there is. A directory of thousands of keys is
// therefore looked at in groups: what a linearizable history does to a group of keys is itself one.
// A group of one key says that none of its values is lost or stale; in a group of several, writes
// that belong together also have to come together.
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

// Of each key, in the keys' order.
using Values = std::vector<Value>;

// The value that each of some keys gets; of several for one key the last counts.
using Write = std::vector<std::pair<std::size_t, Value>>;
// What a read found.
using Read = Values;

// Calls whose times are equal count as under way at once.
struct Call {
    std::int64_t invoked = 0;
    std::int64_t responded = 0;
    std::variant<Write, Read> action;
};

// Nothing where the history is linearizable; otherwise the call whose response cannot be explained
// by what happened up to then. Throws std::runtime_error when more than 32 calls are under way at
// once, or when there are too many orders to decide it.
std::optional<std::size_t> unexplainedCall(const Values& initial, const std::vector<Call>& calls);

}  // namespace qv::tests

#endif  // QV_TESTS_LINEARIZABILITY_H
