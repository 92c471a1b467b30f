// Runs sixteen threads that register, unregister and list services, change the log's level and send
// damaged requests. Records each call with its answer and judges the calls afterwards: some order
// of the calls must explain all answers, the file, its backup, and the services of a start with
// each of them (see Linearizability.h).
//
// Most of the directory never changes. A few services, spread over all of it, change all the time.
// The test judges them in groups and forms new groups for each round. No call is pending at the end
// of a round, and the next round starts from the values of that time. A long load therefore needs
// no more memory than one round.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ConfigurationFiles.h"
#include "History.h"
#include "Linearizability.h"
#include "Names.h"
#include "Worker.h"
#include "support/ConfigurationDocuments.h"
#include "support/FileEvents.h"
#include "support/LoadedPlugin.h"

namespace qv::tests {
namespace {

constexpr std::size_t kThreads = 16;
constexpr std::size_t kChangingServices = 128;
constexpr std::size_t kGroupSize = 16;
constexpr Value kFirstValue = 1;

// The environment variable that sets the duration of the load and makes the test print figures.
constexpr char kSeconds[] = "QV_LOAD_SECONDS";

// Returns a line that describes the call.
std::string describe(const Names& names, const Group& group, const Call& call) {
    std::string text = std::to_string(call.invoked) + ".." + std::to_string(call.responded);
    const auto add = [&](std::size_t key, Value value) {
        text += ' ' + std::to_string(names.idOf(group[key])) + '=' +
                (value == kAbsent ? "none" : std::to_string(value));
    };
    if (const Write* const write = std::get_if<Write>(&call.action)) {
        text += " write";
        for (const auto& [key, value] : *write) {
            add(key, value);
        }
    } else {
        text += " read";
        for (std::size_t key = 0; key < group.size(); ++key) {
            add(key, std::get<Read>(call.action)[key]);
        }
    }
    return text + '\n';
}

// Describes the unexplained call and the last writes to its group before it.
std::string explain(const Names& names, const Group& group, const std::vector<Call>& calls,
                    std::size_t unexplained) {
    constexpr std::size_t kShown = 20;
    std::vector<const Call*> shown;
    for (const Call& call : calls) {
        if (std::holds_alternative<Write>(call.action) &&
            call.invoked <= calls[unexplained].responded) {
            shown.push_back(&call);
        }
    }
    std::sort(shown.begin(), shown.end(),
              [](const Call* one, const Call* other) { return one->responded > other->responded; });
    shown.resize(std::min(shown.size(), kShown));
    std::string text =
        "not explained: " + describe(names, group, calls[unexplained]) + "writes, the last first\n";
    for (const Call* const call : shown) {
        text += describe(names, group, *call);
    }
    return text;
}

class Load : public testing::Test {
  protected:
    explicit Load(std::size_t services) : names_(services), values_(services, kFirstValue) {
        for (std::size_t thread = 0; thread <= kThreads; ++thread) {
            fresh_.emplace_back(static_cast<Value>(kFirstValue + 1 + thread), kThreads + 1);
        }
    }
    void TearDown() override { plugin_.finalize(); }

    // Forms the groups of a round, for runThreads() and judge().
    void mixGroups(unsigned seed) {
        random_.seed(seed);
        Group changing;
        for (std::size_t number = 0; number < kChangingServices; ++number) {
            changing.push_back(number * names_.count() / kChangingServices);
        }
        std::shuffle(changing.begin(), changing.end(), random_);
        groups_.clear();
        for (auto first = changing.begin(); first != changing.end(); first += kGroupSize) {
            groups_.emplace_back(first, first + kGroupSize);
        }
    }

    // Lets each thread make `calls` calls. When all have finished, each thread registers once more.
    History runThreads(int calls) {
        std::vector<Worker> workers;
        workers.reserve(kThreads);
        for (std::size_t thread = 0; thread < kThreads; ++thread) {
            workers.emplace_back(plugin_, names_, groups_, values_, fresh_[thread],
                                 static_cast<unsigned>(random_()));
        }
        const std::int64_t begin = now();
        atOnce(workers, [&](Worker& worker) { worker.run(calls); });
        atOnce(workers, [](Worker& worker) { worker.registerOnceMore(); });
        callingTime_ += now() - begin;
        std::vector<Record> records;
        records.reserve(kThreads);
        for (Worker& worker : workers) {
            EXPECT_EQ(worker.problem(), "");
            records.push_back(std::move(worker.record()));
        }
        History history(values_, std::move(records));
        calls_ += history.calls();
        return history;
    }

    void judge(const History& history) {
        EXPECT_EQ(history.changedOutside(groups_), Group{});
        for (const Group& group : groups_) {
            const std::vector<Call> calls = history.callsOn(group);
            const auto unexplained = unexplainedCall(history.initialOf(group), calls);
            EXPECT_FALSE(unexplained) << explain(names_, group, calls, *unexplained);
            ++histories_;
            longestHistory_ = std::max(longestHistory_, calls.size());
        }
    }

    // Returns whether the test needs another round after `rounds` rounds. A usual run has `usual`
    // rounds. A long run takes this share of its time.
    bool goesOn(unsigned rounds, unsigned usual, double share) const {
        const double seconds = isLong() ? share * std::atof(std::getenv(kSeconds)) : 0;
        return !HasFailure() && (rounds < usual || secondsSince(begin_) < seconds);
    }

    // Prints a figure of a long load.
    void print(const char* name, double figure) const {
        if (isLong()) {
            std::printf("%-24s %8.0f\n", name, figure);
        }
    }

    void printFigures(const char* title) const {
        if (isLong()) {
            std::printf("%s\n", title);
        }
        print("  calls", static_cast<double>(calls_));
        print("  calls a second",
              static_cast<double>(calls_) * 1e9 / static_cast<double>(callingTime_));
        print("  histories checked", static_cast<double>(histories_));
        print("  calls of the longest", static_cast<double>(longestHistory_));
    }

    Values list() const {
        return names_.valuesOf(plugin_.execute(QV_COMMAND_GET_SERVICES, "").bytes);
    }

    // The first member, because loading sets the directories in the environment.
    const LoadedPlugin plugin_;
    const ConfigurationFiles files_;
    const Names names_;
    // The registered values while no thread runs.
    Values values_;
    std::vector<Group> groups_;
    // The fresh values of each thread, and those of the test itself at the end.
    std::vector<FreshValues> fresh_;

  private:
    static bool isLong() { return std::getenv(kSeconds) != nullptr; }

    static double secondsSince(std::int64_t time) {
        return static_cast<double>(now() - time) / 1e9;
    }

    template <class Action>
    static void atOnce(std::vector<Worker>& workers, Action action) {
        std::vector<std::thread> threads;
        threads.reserve(workers.size());
        for (Worker& worker : workers) {
            threads.emplace_back(action, std::ref(worker));
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    std::mt19937 random_;
    const std::int64_t begin_ = now();
    std::size_t calls_ = 0;
    std::int64_t callingTime_ = 0;
    std::size_t histories_ = 0;
    std::size_t longestHistory_ = 0;
};

// Runs the load without a file, so that only the directory and its lock take time.
class LoadInMemory : public Load {
  protected:
    LoadInMemory() : Load(2 * kChangingServices) {
        files_.put(std::nullopt, std::nullopt);
        plugin_.initialize();
        EXPECT_EQ(plugin_.registerServices(names_.services(values_)), QV_OK);
    }
};

TEST_F(LoadInMemory, IsExplainedBySomeOrderOfItsCalls) {
#ifdef QV_SANITIZED
    constexpr int kCallsPerThread = 250;
#else
    constexpr int kCallsPerThread = 1'000;
#endif
    for (unsigned round = 0; goesOn(round, 5, 0.2); ++round) {
        mixGroups(round);
        History history = runThreads(kCallsPerThread);
        values_ = list();
        const std::int64_t time = now();
        history.addReading({time, time}, values_);
        judge(history);
    }
    printFigures("in memory");
}

// Runs the load on a directory that each change saves.
class LoadOnFiles : public Load {
  protected:
#ifdef QV_SANITIZED
    // A sanitizer makes a save many times slower.
    static constexpr std::size_t kServices = 1'000;
    static constexpr int kCallsPerThread = 50;
#else
    static constexpr std::size_t kServices = 10'000;
    static constexpr int kCallsPerThread = 100;
#endif

    LoadOnFiles() : Load(kServices) {
        const std::string file = documentOf(names_.services(values_));
        files_.put(file, file);
        plugin_.initialize();
    }

    void runRound(unsigned seed) {
        mixGroups(seed);
        FileEvents backups({{files_.directory() + "/backup", ""}});
        Interval whole{now(), 0};
        History history = runThreads(kCallsPerThread);
        whole.end = now();
        countSaves(history, backups.take());

        const Values memory = list();
        history.addReading({whole.end, whole.end}, memory);
        const std::string file = files_.main().value();
        const std::string backup = files_.backup().value();
        plugin_.finalize();
        history.addReading(history.timeOfSave(1, whole), startWith(backup, backup));
        plugin_.finalize();
        values_ = startWith(file, backup);
        history.addReading(history.timeOfSave(0, whole), values_);
        // The threads end with registrations, so the last save includes every removal.
        EXPECT_TRUE(values_ == memory) << "the file is not the last save";
        judge(history);
        saveOneMore(groups_.front().front(), file);
    }

    std::size_t saves_ = 0;

  private:
    // Starts the plug-in with the files and returns the values. Checks that the file holds exactly
    // the bytes that a save of these values writes, and that the start does not change the file.
    Values startWith(const std::string& file, const std::string& backup) const {
        files_.put(file, backup);
        plugin_.initialize();
        Values values = list();
        EXPECT_TRUE(file == documentOf(names_.services(values))) << "the file holds other bytes";
        EXPECT_TRUE(files_.main() == file) << "the start has changed the file";
        return values;
    }

    // Counts the saves by the writes of the backup. Only a registration that changes something
    // saves.
    void countSaves(const History& history, const std::vector<std::string>& events) {
        const auto saves = static_cast<std::size_t>(
            std::count(events.begin(), events.end(), std::string("written ") + kConfigurationFile));
        const auto [least, most] = history.saves();
        EXPECT_GE(saves, least);
        EXPECT_LE(saves, most);
        saves_ += saves;
    }

    // Saves once while no thread runs, so that the contents of the file and the backup are known.
    void saveOneMore(std::size_t service, const std::string& before) {
        values_[service] = fresh_.back().take();
        EXPECT_EQ(plugin_.registerServices({names_.service(service, values_[service])}), QV_OK);
        EXPECT_TRUE(files_.main() == documentOf(names_.services(values_))) << "the file is wrong";
        EXPECT_TRUE(files_.backup() == before) << "the backup is wrong";
    }
};

TEST_F(LoadOnFiles, IsExplainedBySomeOrderOfItsCallsAndSoAreTheFiles) {
    for (unsigned round = 0; goesOn(round, 2, 0.8); ++round) {
        runRound(round);
    }
    printFigures("on files");
    print("  saves", static_cast<double>(saves_));
}

}  // namespace
}  // namespace qv::tests
