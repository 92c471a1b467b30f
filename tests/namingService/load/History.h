// Records what the threads of the load test did and saw. Each thread writes only its own record, so
// that recording does not make threads wait for one another. The order between threads comes from
// the steady clock, which all processors share.
//
// A record holds only the difference between a listing and the thread's previous listing.
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

// Whether a registration changed something and therefore saved.
enum class Saves { kNever, kPerhaps, kSurely };

class Record {
  public:
    // Starts the record of a thread that has seen these values.
    explicit Record(Values seen) : seen_(std::move(seen)) {}

    void addWrite(Interval time, const Write& write, Saves saves);
    void addListing(Interval time, const Values& values);
    // Counts a call that neither changed nor listed anything.
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

    // Adds a reading of all services that was taken at some time in the interval.
    void addReading(Interval time, Values values) {
        readings_.emplace_back(time, std::move(values));
    }

    // Returns the interval that contains the last save if `before` is 0, or the save before it if
    // `before` is 1. Returns `whole`, the time of the whole history, if there was no such save.
    Interval timeOfSave(std::size_t before, Interval whole) const;
    // Returns the smallest and the largest possible number of saves.
    std::pair<std::size_t, std::size_t> saves() const;
    // Returns the number of all calls.
    std::size_t calls() const;

    // Returns the calls that concern the services of the group.
    std::vector<Call> callsOn(const std::vector<std::size_t>& group) const;
    Values initialOf(const std::vector<std::size_t>& group) const;

    // Returns the services outside the groups that some call or reading saw changed.
    std::vector<std::size_t> changedOutside(
        const std::vector<std::vector<std::size_t>>& groups) const;

  private:
    Values initial_;
    std::vector<Record> records_;
    std::vector<std::pair<Interval, Values>> readings_;
};

}  // namespace qv::tests

#endif  // QV_TESTS_LOAD_HISTORY_H
