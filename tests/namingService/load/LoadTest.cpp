// Sixteen threads that register, unregister and list at once, beside changes of the log's level and
// damaged requests. What each call was given and gave back is recorded, and judged afterwards: all
// of it must be explained by some order of the calls, see Linearizability.h, and so must the file,
// its backup, and what a start makes of them.
//
// Most of the directory never changes. A few services, spread over all of it, do so all the time.
// They are judged in groups, mixed anew for each round, so that over the rounds any of them stand
// together. After a round nothing is under way, and the next starts from what there is then; so the
// memory for a history is that of one round, however long the load.

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

// Makes the load go on for so long, and print what it did.
constexpr char kSeconds[] = "QV_LOAD_SECONDS";

// A call, as a line.
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

// The call, and what was written in its group shortly before.
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
        "not explained: " + describe(names, group, calls[unexplained]) + "behind, the last first\n";
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

    // The groups of a round, for runThreads() and judge().
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

    // Each thread makes so many calls, and when all are through, they register once more at once.
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

    // Whether the test wants another round, after so many.
    bool goesOn(unsigned rounds, unsigned usual, double share) const {
        const double seconds = isLong() ? share * std::atof(std::getenv(kSeconds)) : 0;
        return !HasFailure() && (rounds < usual || secondsSince(begin_) < seconds);
    }

    // Of a long load only.
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

    // First, so that it does not choose its own directory afterwards.
    const LoadedPlugin plugin_;
    const ConfigurationFiles files_;
    const Names names_;
    // What is registered while no thread runs.
    Values values_;
    std::vector<Group> groups_;
    // Each thread's, and that of the test itself.
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

// No file, so nothing but the directory and its lock takes time.
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

// A directory that is saved all the while.
class LoadOnFiles : public Load {
  protected:
#ifdef QV_SANITIZED
    // There a save takes many times as long.
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
        // The threads ended with registrations, so that nothing was removed after the last save.
        EXPECT_TRUE(values_ == memory) << "the file is not the last save";
        judge(history);
        saveOneMore(groups_.front().front(), file);
    }

    std::size_t saves_ = 0;

  private:
    // What a start with this file has; the file must be what would be written for it.
    Values startWith(const std::string& file, const std::string& backup) const {
        files_.put(file, backup);
        plugin_.initialize();
        Values values = list();
        EXPECT_TRUE(file == documentOf(names_.services(values))) << "the file holds something else";
        EXPECT_TRUE(files_.main() == file) << "the start has changed the file";
        return values;
    }

    // A registration that changed something writes the backup and the file, another neither.
    void countSaves(const History& history, const std::vector<std::string>& events) {
        const auto saves = static_cast<std::size_t>(
            std::count(events.begin(), events.end(), std::string("written ") + kConfigurationFile));
        const auto [least, most] = history.saves();
        EXPECT_GE(saves, least);
        EXPECT_LE(saves, most);
        saves_ += saves;
    }

    // Alone, so that the file and the backup can only be one thing.
    void saveOneMore(std::size_t service, const std::string& before) {
        values_[service] = fresh_.back().take();
        EXPECT_EQ(plugin_.registerServices({names_.service(service, values_[service])}), QV_OK);
        EXPECT_TRUE(files_.main() == documentOf(names_.services(values_))) << "another file";
        EXPECT_TRUE(files_.backup() == before) << "another backup";
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
