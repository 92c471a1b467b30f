#include "Session.h"

#include <fmt/format.h>

#include <cstddef>
#include <optional>
#include <utility>

#include "PluginError.h"
#include "Script.h"
#include "ScriptError.h"
#include "StandardStreams.h"

namespace qv::host {

namespace {

// Enough to mend a script in one go; a file that is no script at all says no more than this.
constexpr std::size_t kMostProblems = 10;

}  // namespace

std::vector<Session::PlacedCommand> Session::readScript(LineReader reader,
                                                        std::vector<std::string>& problems) {
    std::vector<PlacedCommand> script;
    std::string line;
    try {
        while (reader.next(line)) {
            try {
                if (std::optional<Command> command = parseCommand(line)) {
                    script.push_back({std::move(*command), reader.place()});
                }
            } catch (const ScriptError& error) {
                if (problems.size() == kMostProblems) {
                    problems.push_back(reader.place() + ": more is wrong from here on");
                    return script;
                }
                problems.push_back(fmt::format("{}: {}", reader.place(), error.what()));
            }
        }
    } catch (const ScriptError& error) {
        problems.emplace_back(error.what());
    }
    return script;
}

void Session::execute(const Command& command) {
    switch (command.verb) {
        case Command::Verb::Register:
            plugin_.registerServices({{command.number, command.address}});
            break;
        case Command::Verb::Unregister:
            plugin_.unregisterServices({command.number});
            break;
        case Command::Verb::List:
            writeOutput(out_, formatServices(plugin_.services(), format_));
            break;
        case Command::Verb::Level:
            plugin_.setDebugLevel(command.number);
            break;
        case Command::Verb::Restart:
            plugin_.finalize();
            plugin_.initialize();
            break;
    }
}

void Session::execute(const Command& command, const std::string& place) {
    try {
        execute(command);
    } catch (const PluginError& error) {
        throw PluginError(fmt::format("{}: {}", place, error.what()));
    }
}

void Session::runScript(const std::vector<PlacedCommand>& script) {
    for (const PlacedCommand& placed : script) {
        execute(placed.command, placed.place);
    }
}

void Session::runLines(LineReader reader) {
    std::string line;
    while (reader.next(line)) {
        std::optional<Command> command;
        try {
            command = parseCommand(line);
        } catch (const ScriptError& error) {
            throw ScriptError(fmt::format("{}: {}", reader.place(), error.what()));
        }
        if (command) {
            execute(*command, reader.place());
        }
    }
}

}  // namespace qv::host
