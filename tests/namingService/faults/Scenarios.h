// What the plug-in does with its files, each at one point of a host's life.
#ifndef QV_TESTS_SCENARIOS_H
#define QV_TESTS_SCENARIOS_H

#include <functional>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ConfigurationFiles.h"
#include "support/LoadedPlugin.h"
#include "support/SystemCallTracer.h"

namespace qv::tests {

struct Scenario {
    const char* name;
    // What is there when the host starts.
    std::optional<std::string> main;
    std::optional<std::string> backup;
    // From the start, which is initialisation, to in front of the registration; none where the
    // start itself is what the scenario is about.
    std::function<void(const LoadedPlugin&, const ConfigurationFiles&)> prepare;

    bool isStart() const { return prepare == nullptr; }
};

std::ostream& operator<<(std::ostream& out, const Scenario& scenario);

std::vector<Scenario> scenarios();

// Those of a save, which all end in the same registration.
std::vector<Scenario> saves();

// Goes through a scenario, in a child, with a fault in the part that it is about.
TracedRun play(const Scenario& scenario, const LoadedPlugin& plugin,
               const ConfigurationFiles& files, const Fault& fault = {});

// What the child saw, where it came to the end. By then it has kept the files as they were after
// the part with the fault (ConfigurationFiles::keep()), and has registered one more service.
struct Report {
    explicit Report(const std::string& text);

    // A result code, or what was thrown.
    std::string outcome;
    std::string nextOutcome;
    std::string services;
    std::string nextServices;
    // The open files at the end, how often each.
    std::map<std::string, int> openFiles;
};

// "1=address 2=address".
std::string listed(const Services& services);

}  // namespace qv::tests

#endif  // QV_TESTS_SCENARIOS_H
