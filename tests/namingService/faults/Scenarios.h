// SPDX-License-Identifier: Apache-2.0

// Lists the scenarios of the fault tests: operations of the plug-in at several points of a host's
// life. Plays a scenario in a child process.
#ifndef QV_TESTS_SCENARIOS_H
#define QV_TESTS_SCENARIOS_H

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ConfigurationFiles.h"
#include "support/ChildRun.h"
#include "support/LoadedPlugin.h"
#include "support/SystemCallTracer.h"

namespace qv::tests {

// The operation in which faults happen: a command, the initialisation or the finalisation.
struct Operation {
    enum class Kind { kNothing, kInitialize, kCommand, kFinalize };

    Kind kind = Kind::kNothing;
    std::uint32_t command = 0;
    std::string request;
};

// Initialises the plug-in and brings it to the point before the operation.
using Preparation = void (*)(const LoadedPlugin&, const ConfigurationFiles&);

struct Scenario {
    const char* name = nullptr;
    // The files at the start of the host.
    std::optional<std::string> main;
    std::optional<std::string> backup;
    ConfigurationFiles::Log log = ConfigurationFiles::Log::kEmpty;
    // Null if the operation is the first start.
    Preparation prepare = nullptr;
    Operation operation;
    int result = QV_OK;

    bool isStart() const { return operation.kind == Operation::Kind::kInitialize; }
    // Whether the operation reads the files.
    bool loads() const { return isStart() && prepare == nullptr; }
    bool isEnd() const { return operation.kind == Operation::Kind::kFinalize; }
    bool is(std::uint32_t command) const {
        return operation.kind == Operation::Kind::kCommand && operation.command == command;
    }
    bool isRegistration() const { return is(QV_COMMAND_REGISTER_SERVICES); }
    bool isAtLevel7() const;
    // Whether each command writes a record to a log that exists at the end.
    bool isLogged() const { return isAtLevel7() && log != ConfigurationFiles::Log::kRemoved; }
    // Whether the operation itself writes a record.
    bool writesRecord() const {
        return isLogged() && (!is(QV_COMMAND_SET_DEBUG_LEVEL) || result != QV_OK);
    }
};

std::ostream& operator<<(std::ostream& out, const Scenario& scenario);

// Returns the scenarios whose files exceed the buffers of streams.
std::vector<Scenario> scenariosOfMany();
// Returns the scenarios of few services.
std::vector<Scenario> scenariosOfFew();
// Returns all scenarios.
std::vector<Scenario> scenarios();
// Returns the scenarios whose operation is one and the same registration that saves.
std::vector<Scenario> saves();

// The functions that a child calls before and after the operation.
struct Interference {
    // Returns how many allocations the function leaves behind on purpose.
    std::function<long()> begin;
    // Returns whether the interference had an effect.
    std::function<bool()> end;
};

// Plays a scenario in a child process: with an interference around the operation, with a fault in
// the operation, twice in one process, or up to the operation.
ChildRun play(const Scenario& scenario, const LoadedPlugin& plugin, const ConfigurationFiles& files,
              const Interference& interference);
TracedRun play(const Scenario& scenario, const LoadedPlugin& plugin,
               const ConfigurationFiles& files, const Fault& fault = {});
ChildRun playTwice(const Scenario& scenario, const LoadedPlugin& plugin,
                   const ConfigurationFiles& files);
ChildRun playUpToOperation(const Scenario& scenario, const LoadedPlugin& plugin,
                           const ConfigurationFiles& files);

// The observations of a child that reached its end. After the operation the child keeps copies of
// the files (ConfigurationFiles::keep()), calls each command once more with a further service, and
// finalises the plug-in.
struct Report {
    explicit Report(const std::string& text);

    // Whether the interference had an effect.
    bool isStruck = false;
    // The result code of the operation, or the exception.
    std::string outcome;
    // The answer of the operation.
    std::string answer;
    // All services after the operation. If a start threw, after a second start.
    std::string services;
    // What two further registrations without a change saved after a registration that threw: "all
    // and nothing" or "nothing and nothing".
    std::string repetition;
    // The results of the further registration, change of level and unregistration.
    std::string nextOutcomes;
    std::string nextServices;
    std::string lastServices;
    // Whether the further registration is in the log.
    bool isLogged = false;
    // Whether all lines of the log are whole.
    bool isLogWhole = false;
    // How many allocations of the child's life are left at its end.
    long leftBehind = 0;
    // The files that are open at the end and were not open before, with the number of descriptors.
    std::map<std::string, int> openFiles;
};

// Returns the services as text: "1=address 2=address".
std::string listed(const Services& services);

}  // namespace qv::tests

#endif  // QV_TESTS_SCENARIOS_H
