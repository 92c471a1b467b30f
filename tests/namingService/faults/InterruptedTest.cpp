// SPDX-License-Identifier: Apache-2.0

// Sends a signal every 100 microseconds during some thousand commands and the starts and ends
// between them. The system does not restart the calls that the signal interrupts. Each command's
// result, the directory, the file at each start and each record of the log are as without signals.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>

#include "ConfigurationFiles.h"
#include "support/ChildRun.h"

namespace qv::tests {
namespace {

constexpr std::size_t kLives = 40;
constexpr int kRounds = 50;
constexpr char kLevel7[] =
    "<plist version=\"1.0\"><dict><key>DebugLevel</key><integer>7</integer></dict></plist>";

volatile std::sig_atomic_t signals = 0;

void count(int /*signal*/) {
    signals = signals + 1;
}

// Sends the signals while the object lives.
class Interruptions {
  public:
    Interruptions() {
        struct sigaction action = {};
        action.sa_handler = count;
        sigaction(SIGALRM, &action, nullptr);
        repeat(kMicroseconds);
    }
    ~Interruptions() { repeat(0); }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

  private:
    static constexpr suseconds_t kMicroseconds = 100;

    static void repeat(suseconds_t microseconds) {
        const itimerval time{{0, microseconds}, {0, microseconds}};
        setitimer(ITIMER_REAL, &time, nullptr);
    }
};

void require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t number = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++number;
    }
    return number;
}

// Runs lives of a host one after another. Each begins with the directory that the last one saved.
void live(const LoadedPlugin& plugin) {
    std::map<std::int32_t, std::string> directory;
    for (std::size_t life = 0; life < kLives; ++life) {
        require(plugin.initialize() == QV_OK, "the initialisation fails");
        for (int round = 0; round < kRounds; ++round) {
            require(plugin.getServices() == Services(directory.begin(), directory.end()),
                    "the listing is wrong");
            plugin.unregisterServices({round % 7});
            directory.erase(round % 7);
            const Service service(round % 9, "unix:/run/" + std::to_string(life * kRounds + round));
            require(plugin.registerServices({service}) == QV_OK, "a registration fails");
            directory[service.first] = service.second;
        }
        plugin.finalize();
    }
}

TEST(Interrupted, CommandsFilesAndLogAreAsWithoutSignals) {
    const LoadedPlugin plugin;
    const ConfigurationFiles files;
    files.put(kLevel7, kLevel7);
    const ChildRun run = runInChild([&plugin] {
        const Interruptions interruptions;
        live(plugin);
        return std::to_string(signals);
    });
    ASSERT_TRUE(run.hasReturned()) << run.report;
    EXPECT_GT(std::stoul(run.report), kLives);
    const std::string log = contentOf(files.logFile()).value_or("");
    constexpr std::size_t kCommands = kLives * kRounds;
    EXPECT_EQ(occurrences(log, "namingService: QvPluginInitialize enter\n"), kLives);
    EXPECT_EQ(occurrences(log, "namingService: QvPluginFinalize enter\n"), kLives);
    EXPECT_EQ(occurrences(log, "namingService: registerServices in\n"), kCommands);
    EXPECT_EQ(occurrences(log, "namingService: unregisterServices in\n"), kCommands);
    EXPECT_EQ(occurrences(log, "namingService: getServices in\n"), kCommands);
    EXPECT_EQ(occurrences(log, "Save address\n"), kCommands);
    EXPECT_EQ(static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n')),
              5 * kCommands + 2 * kLives);
    RecordProperty("interruptions", run.report);
    std::printf("interruptions %s\n", run.report.c_str());
}

}  // namespace
}  // namespace qv::tests
