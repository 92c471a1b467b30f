// SPDX-License-Identifier: Apache-2.0

// Makes the calls of one thread of the load, of all kinds and at random, and records them.
#ifndef QV_TESTS_LOAD_WORKER_H
#define QV_TESTS_LOAD_WORKER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "Judge.h"
#include "Names.h"
#include "support/LoadedPlugin.h"

namespace qv::tests {

constexpr std::size_t kThreads = 16;
constexpr std::size_t kKeys = 64;

// Returns the time in nanoseconds, as the intervals of the history count it.
inline std::int64_t now() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

// A few services, spread over the directory, change all the time: those of the keys, which all
// threads change, and two marks of each thread. The others keep their values, among them the
// service behind each that changes.
//
// A registration of a thread writes a new value under some keys and under both marks. A removal
// removes some keys and the second mark. It only follows a registration. The marks in a listing
// therefore tell how many changes of each thread the listing saw.
class Layout {
  public:
    explicit Layout(std::size_t services) : step_(services / (kKeys + 2 * kThreads)) {}

    std::size_t key(std::size_t number) const { return number * step_; }
    std::size_t mark(std::size_t thread) const { return (kKeys + 2 * thread) * step_; }
    std::size_t secondMark(std::size_t thread) const { return mark(thread) + step_; }
    // Returns whether the service is a key or a mark.
    bool changes(std::size_t service) const {
        return service % step_ == 0 && service / step_ < kKeys + 2 * kThreads;
    }

  private:
    std::size_t step_;
};

class Worker {
  public:
    // `first` is greater than all values so far. The other arguments must outlive the worker.
    Worker(const LoadedPlugin& plugin, const Names& names, const Values& initial, Value first,
           std::size_t thread, unsigned seed)
        : plugin_(plugin),
          names_(names),
          layout_(names.count()),
          initial_(initial),
          first_(first),
          thread_(thread),
          random_(seed) {}

    // Makes the calls. Stops at the first answer that is wrong by itself.
    void run(int calls);
    void registerOnceMore();

    // Returns the description of the wrong answer, or an empty text.
    const std::string& problem() const { return problem_; }
    const std::vector<Change>& changes() const { return changes_; }
    std::size_t calls() const { return calls_; }

    struct Listing {
        Interval time;
        Values values;
    };
    const std::vector<Listing>& listings() const { return listings_; }

  private:
    template <class Action>
    void noticeProblems(Action action);
    void callAnything();
    void registerSome();
    void unregisterSome();
    void registerWhatIsThere();
    void list();
    void setDebugLevel();
    void sendDamage();
    void change(std::uint32_t command, std::vector<std::size_t> services, Value value);
    std::vector<std::size_t> someKeys();
    Interval execute(std::uint32_t command, const std::string& request, int expected);
    int upTo(int most) { return std::uniform_int_distribution<int>(0, most)(random_); }

    const LoadedPlugin& plugin_;
    const Names& names_;
    const Layout layout_;
    const Values& initial_;
    const Value first_;
    const std::size_t thread_;
    std::mt19937 random_;
    std::vector<Change> changes_;
    std::vector<Listing> listings_;
    std::size_t registrations_ = 0;
    std::size_t calls_ = 0;
    // The answer of the last call.
    std::string answer_;
    std::string problem_;
};

// Returns the reading that the values of a listing are. Throws std::runtime_error if the marks are
// impossible, or if a service has changed that nobody changes.
Reading readingOf(Interval time, const Values& values, const Values& initial,
                  const std::vector<std::vector<Change>>& changes);
// Returns the values of the keys.
Values keysOf(const Values& values);

}  // namespace qv::tests

#endif  // QV_TESTS_LOAD_WORKER_H
