// What the threads of the load test did and saw. Each thread writes a record of its own and nothing
// that others touch, so that to record keeps no thread from running beside another: the order
// between threads comes from the steady clock, which all processors agree on.
//
// A listing of ten thousand services is recorded as what differs from the thread's listing before,
// which loses nothing and is short.
#ifndef QV_TESTS_LOAD_HISTORY_H
#define QV_TESTS_LOAD_HISTORY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Linearizability.h"

namespace qv::tests {

std::int64_t now();

struct Interval {
    std::int64_t begin = 0;
    std::int64_t end = 0;
};

// Whether a registration changed something, and so saved.
enum class Saves { kNever, kPerhaps, kSurely };

class Record {
  public:
    // Of a thread that has seen these values, and nothing of its own.
    explicit Record(Values seen) : seen_(std::move(seen)) {}

    void addWrite(Interval time, const Write& write, Saves saves);
    void addListing(Interval time, const Values& values);
    // One that neither changed nor listed anything.
    void addOther() { ++others_; }

  private:
    friend class History;

    struct Operation {
        Interval time;
        std::uint32_t firstChange = 0;
        std::uint32_t changes = 0;
        bool isListing = false;
        Saves saves = Saves::kNever;
    };

    std::vector<Operation> operations_;
    std::vector<std::pair<std::uint32_t, Value>> changes_;
    std::size_t others_ = 0;
    Values seen_;
};

class History {
  public:
    History(Values initial, std::vector<Record> records)
        : initial_(std::move(initial)), records_(std::move(records)) {}

    // One more reading of all services, which somehow was taken within this time.
    void addReading(Interval time, Values values) {
        readings_.emplace_back(time, std::move(values));
    }

    // When the last save was taken, or, with 1, the one before. `whole` is the time of the whole
    // history, in case that there was none.
    Interval timeOfSave(std::size_t before, Interval whole) const;
    // How many registrations saved at least, and at most.
    std::pair<std::size_t, std::size_t> saves() const;
    // All that the threads made.
    std::size_t calls() const;

    // What happened to some of the services.
    std::vector<Call> callsOn(const std::vector<std::size_t>& group) const;
    Values initialOf(const std::vector<std::size_t>& group) const;

    // The services outside the groups that did not stay as they were at first, as far as anybody
    // saw.
    std::vector<std::size_t> changedOutside(
        const std::vector<std::vector<std::size_t>>& groups) const;

  private:
    Values initial_;
    std::vector<Record> records_;
    std::vector<std::pair<Interval, Values>> readings_;
};

}  // namespace qv::tests

#endif  // QV_TESTS_LOAD_HISTORY_H
