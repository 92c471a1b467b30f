// One thread of the load: calls of all kinds, at random, each recorded.
#ifndef QV_TESTS_LOAD_WORKER_H
#define QV_TESTS_LOAD_WORKER_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "History.h"
#include "Linearizability.h"
#include "Names.h"
#include "support/LoadedPlugin.h"

namespace qv::tests {

// Services that are judged together.
using Group = std::vector<std::size_t>;

// Values that nobody else has: the first, and then each so many further.
class FreshValues {
  public:
    FreshValues(Value first, Value step) : next_(first), step_(step) {}
    Value take() {
        const Value value = next_;
        next_ += step_;
        return value;
    }

  private:
    Value next_;
    Value step_;
};

class Worker {
  public:
    // The services of the groups change all the time, the one behind each never. Whatever is given
    // lives as long as the worker.
    Worker(const LoadedPlugin& plugin, const Names& names, const std::vector<Group>& groups,
           const Values& initial, FreshValues& fresh, unsigned seed)
        : plugin_(plugin),
          names_(names),
          groups_(groups),
          initial_(initial),
          fresh_(fresh),
          random_(seed),
          record_(initial) {}

    // Stops at the first answer that is wrong on its own.
    void run(int calls);
    void registerOnceMore();

    // What was wrong with it, or nothing.
    const std::string& problem() const { return problem_; }
    Record& record() { return record_; }

  private:
    template <class Action>
    void noticeProblems(Action action);
    void callAnything();
    void registerNewAddresses();
    void registerOwnAgain();
    void unregister();
    void registerWhatIsThere();
    void change(std::uint32_t command, const Write& write, Saves saves);
    void list();
    void setDebugLevel();
    void sendDamage();
    Interval execute(std::uint32_t command, const std::string& request, int expected);
    Group someOfTheGroups();
    int upTo(int most) { return std::uniform_int_distribution<int>(0, most)(random_); }

    const LoadedPlugin& plugin_;
    const Names& names_;
    const std::vector<Group>& groups_;
    const Values& initial_;
    FreshValues& fresh_;
    std::mt19937 random_;
    Record record_;
    // What this thread registered last.
    Write own_;
    // The bytes that the last call gave back.
    std::string answer_;
    std::string problem_;
};

}  // namespace qv::tests

#endif  // QV_TESTS_LOAD_WORKER_H
