// SPDX-License-Identifier: Apache-2.0

// Runs sixteen threads that register, unregister and list services, change the log's level and send
// damaged requests. Afterwards some order of the calls must explain all answers, the file, its
// backup, and the services of a start with each of them (see Judge.h).
//
// No call is pending at the end of a round, and the next round starts from the values of that time.
// A long load therefore needs no more memory than one round.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ConfigurationFiles.h"
#include "Judge.h"
#include "Names.h"
#include "Worker.h"
#include "support/ConfigurationDocuments.h"
#include "support/FileEvents.h"
#include "support/LoadedPlugin.h"
#include "support/UsualOrReduced.h"

namespace qv::tests {
namespace {

// The environment variable that sets the duration of the load and makes the test print figures.
constexpr char kSeconds[] = "QV_LOAD_SECONDS";

class Load : public testing::Test {
  protected:
    explicit Load(std::size_t services) : names_(services), values_(services, 1) {}
    void TearDown() override { plugin_.finalize(); }

    // Lets each thread make `calls` calls. When all have finished, each thread registers once more.
    void runThreads(int calls, unsigned seed) {
        random_.seed(seed);
        const Value first = 1 + *std::max_element(values_.begin(), values_.end());
        workers_.clear();
        workers_.reserve(kThreads);
        for (std::size_t thread = 0; thread < kThreads; ++thread) {
            workers_.emplace_back(plugin_, names_, values_, first, thread,
                                  static_cast<unsigned>(random_()));
        }
        time_.begin = now();
        atOnce([&](Worker& worker) { worker.run(calls); });
        atOnce([](Worker& worker) { worker.registerOnceMore(); });
        time_.end = now();
        callingTime_ += time_.end - time_.begin;
        changes_.clear();
        for (const Worker& worker : workers_) {
            EXPECT_EQ(worker.problem(), "");
            changes_.push_back(worker.changes());
            calls_ += worker.calls();
        }
    }

    // Judges what the threads listed, and further readings of all services.
    void judge(const std::vector<Worker::Listing>& further) {
        std::vector<Reading> readings;
        const auto add = [&](const std::vector<Worker::Listing>& listings) {
            for (const Worker::Listing& listing : listings) {
                readings.push_back(readingOf(listing.time, listing.values, values_, changes_));
            }
        };
        add(further);
        for (const Worker& worker : workers_) {
            add(worker.listings());
        }
        readings_ += readings.size();
        const auto problem = contradiction(keysOf(values_), changes_, readings);
        EXPECT_FALSE(problem) << *problem;
    }

    // Returns how many registrations the values do not show yet.
    std::size_t registrationsAfter(const Values& values) const {
        const Reading reading = readingOf(time_, values, values_, changes_);
        std::size_t count = 0;
        for (std::size_t thread = 0; thread < kThreads; ++thread) {
            const auto& own = changes_[thread];
            count += static_cast<std::size_t>(std::count_if(
                own.begin() + static_cast<std::ptrdiff_t>(reading.seen[thread]), own.end(),
                [](const Change& change) { return change.value != kAbsent; }));
        }
        return count;
    }

    // Returns whether the test needs another round after `rounds` rounds. A usual run has `usual`
    // rounds. A long run takes this share of its time.
    bool goesOn(unsigned rounds, unsigned usual, double share) const {
        const double seconds = isLong() ? share * std::atof(std::getenv(kSeconds)) : 0;
        const double passed = static_cast<double>(now() - begin_) / 1e9;
        return !HasFailure() && (rounds < usual || passed < seconds);
    }

    // Prints the figures of a long load.
    void print(const char* title, std::size_t saves) const {
        if (isLong()) {
            std::printf(
                "%s\n  calls %zu\n  calls a second %.0f\n  readings judged %zu\n"
                "  saves %zu\n",
                title, calls_,
                static_cast<double>(calls_) * 1e9 / static_cast<double>(callingTime_), readings_,
                saves);
        }
    }

    Values list() const {
        return names_.valuesOf(plugin_.execute(QV_COMMAND_GET_SERVICES, "").bytes);
    }

    // The first member, because loading sets the directories in the environment.
    const LoadedPlugin plugin_;
    const ConfigurationFiles files_;
    const Names names_;
    // The registered values at the start of the round.
    Values values_;
    Interval time_;

  private:
    static bool isLong() { return std::getenv(kSeconds) != nullptr; }

    template <class Action>
    void atOnce(Action action) {
        std::vector<std::thread> threads;
        threads.reserve(workers_.size());
        for (Worker& worker : workers_) {
            threads.emplace_back(action, std::ref(worker));
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    std::mt19937 random_;
    std::vector<Worker> workers_;
    std::vector<std::vector<Change>> changes_;
    const std::int64_t begin_ = now();
    std::size_t calls_ = 0;
    std::int64_t callingTime_ = 0;
    std::size_t readings_ = 0;
};

// Runs the load without a file, so that only the directory and its lock take time.
class LoadInMemory : public Load {
  protected:
    LoadInMemory() : Load(256) {
        files_.put(std::nullopt, std::nullopt);
        plugin_.initialize();
        EXPECT_EQ(plugin_.registerServices(names_.services(values_)), QV_OK);
    }
};

TEST_F(LoadInMemory, IsExplainedBySomeOrderOfItsCalls) {
    constexpr int kCallsPerThread = usualOrReduced(1'000, 250);
    for (unsigned round = 0; goesOn(round, 5, 0.2); ++round) {
        runThreads(kCallsPerThread, round);
        const Values values = list();
        judge({{{time_.end, time_.end}, values}});
        values_ = values;
    }
    print("in memory", 0);
}

// Runs the load on a directory that each change saves.
class LoadOnFiles : public Load {
  protected:
    static constexpr std::size_t kServices = usualOrReduced(10'000, 1'000);
    static constexpr int kCallsPerThread = usualOrReduced(100, 50);

    LoadOnFiles() : Load(kServices) {
        const std::string file = documentOf(names_.services(values_));
        files_.put(file, file);
        plugin_.initialize();
    }

    void runRound(unsigned seed) {
        FileEvents backups({{files_.directory() + "/backup", ""}});
        runThreads(kCallsPerThread, seed);
        // Each registration changes something, and each save writes the backup once.
        const auto events = backups.take();
        const auto saves = static_cast<std::size_t>(
            std::count(events.begin(), events.end(), std::string("written ") + kConfigurationFile));
        EXPECT_EQ(saves, registrationsAfter(values_));
        saves_ += saves;

        const Values memory = list();
        const std::string file = files_.main().value();
        const std::string backup = files_.backup().value();
        plugin_.finalize();
        const Values ofBackup = startWith(backup, backup);
        plugin_.finalize();
        const Values ofFile = startWith(file, backup);
        // The threads end with registrations, so the last save includes every removal.
        EXPECT_TRUE(ofFile == memory) << "the file is not the last save";
        EXPECT_EQ(registrationsAfter(ofBackup), 1U) << "the backup is not the save before";
        judge({{{time_.end, time_.end}, memory}, {time_, ofBackup}});
        values_ = ofFile;
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
};

TEST_F(LoadOnFiles, IsExplainedBySomeOrderOfItsCallsAndSoAreTheFiles) {
    for (unsigned round = 0; goesOn(round, 2, 0.8); ++round) {
        runRound(round);
    }
    print("on files", saves_);
}

}  // namespace
}  // namespace qv::tests
