// What the plug-in does, each operation at some points of a host's life.
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

// What faults happen in: a command, or what begins or ends a host's life with the plug-in.
struct Operation {
    enum class Kind { kNothing, kInitialize, kCommand, kFinalize };

    Kind kind = Kind::kNothing;
    std::uint32_t command = 0;
    std::string request;
};

// From the start, which is initialisation, to in front of the operation.
using Preparation = void (*)(const LoadedPlugin&, const ConfigurationFiles&);

struct Scenario {
    const char* name = nullptr;
    // What is there when the host starts.
    std::optional<std::string> main;
    std::optional<std::string> backup;
    ConfigurationFiles::Log log = ConfigurationFiles::Log::kEmpty;
    // None where the operation is the start itself.
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
    // Whether each command is a record in a log that is there at the end.
    bool isLogged() const { return isAtLevel7() && log != ConfigurationFiles::Log::kRemoved; }
    // Whether the operation is one itself.
    bool writesRecord() const {
        return isLogged() && (!is(QV_COMMAND_SET_DEBUG_LEVEL) || result != QV_OK);
    }
};

std::ostream& operator<<(std::ostream& out, const Scenario& scenario);

// Those of files that exceed the streams' buffers, those of few services, and both.
std::vector<Scenario> scenariosOfMany();
std::vector<Scenario> scenariosOfFew();
std::vector<Scenario> scenarios();
// Those of a save, which end in the same registration.
std::vector<Scenario> saves();

// What a child does in front of the operation and behind it.
struct Interference {
    // Returns how many allocations stay behind on purpose.
    std::function<long()> begin;
    // Whether anything came of it.
    std::function<bool()> end;
};

// Plays a scenario in a child process: with an interference around the operation, with a fault in the
// operation, twice in one process, or up to the operation.
ChildRun play(const Scenario& scenario, const LoadedPlugin& plugin, const ConfigurationFiles& files,
              const Interference& interference);
TracedRun play(const Scenario& scenario, const LoadedPlugin& plugin,
               const ConfigurationFiles& files, const Fault& fault = {});
ChildRun playTwice(const Scenario& scenario, const LoadedPlugin& plugin,
                   const ConfigurationFiles& files);
ChildRun playUpToOperation(const Scenario& scenario, const LoadedPlugin& plugin,
                           const ConfigurationFiles& files);

// What the child saw, where it came to the end. By then it has kept the files as they were after
// the operation (ConfigurationFiles::keep()), has called each command once more, with one more
// service registered, and has finalised the plug-in.
struct Report {
    explicit Report(const std::string& text);

    // Whether the interference came to anything.
    bool isStruck = false;
    // A result code, or what was thrown.
    std::string outcome;
    // What the operation answered.
    std::string answer;
    // All services then. Where the start threw, after another one.
    std::string services;
    // Where a registration threw, what two more that changed nothing have saved: "all and nothing",
    // "nothing and nothing".
    std::string repetition;
    // Results of the further registration, change of level and unregistration.
    std::string nextOutcomes;
    std::string nextServices;
    std::string lastServices;
    // Whether the further registration is in the log, and all lines there are whole.
    bool isLogged = false;
    bool isLogWhole = false;
    // How many allocations of the child's life are left at its end.
    long leftBehind = 0;
    // The files that are open at the end and were not before, how often each.
    std::map<std::string, int> openFiles;
};

// "1=address 2=address".
std::string listed(const Services& services);

}  // namespace qv::tests

#endif  // QV_TESTS_SCENARIOS_H
