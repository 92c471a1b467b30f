// Makes and records the calls of one thread of the load: calls of all kinds, at random.
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

// The services that the test judges together.
using Group = std::vector<std::size_t>;

// Gives out the values first, first + step, and so on, which no other thread uses.
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
    // The services of the groups change all the time. The service after each of them never changes.
    // The arguments must live as long as the worker.
    Worker(const LoadedPlugin& plugin, const Names& names, const std::vector<Group>& groups,
           const Values& initial, FreshValues& fresh, unsigned seed)
        : plugin_(plugin),
          names_(names),
          groups_(groups),
          initial_(initial),
          fresh_(fresh),
          random_(seed),
          record_(initial) {}

    // Makes the calls. Stops at the first answer that is wrong by itself.
    void run(int calls);
    void registerOnceMore();

    // Returns the description of the wrong answer, or an empty text.
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
    // The last registration of this thread.
    Write own_;
    // The answer of the last call.
    std::string answer_;
    std::string problem_;
};

}  // namespace qv::tests

#endif  // QV_TESTS_LOAD_WORKER_H
