#include "host/ScriptProperties.h"

#include <Output.h>
#include <Plugin.h>
#include <PluginError.h>
#include <QvText.h>
#include <Script.h>
#include <ScriptError.h>
#include <Session.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ScriptLanguage.h"
#include "namingService/ModelledFiles.h"
#include "support/ConfigurationDocuments.h"
#include "support/Files.h"
#include "support/Require.h"
#include "support/TemporaryDirectory.h"

namespace qv::fuzz {
namespace {

using host::Command;
using host::LineReader;
using host::Session;
using Kind = Line::Kind;

// Whatever the line holds.
constexpr std::size_t kLongestMessage = 250;
// That are told of one by one.
constexpr std::size_t kMostProblems = 10;

const std::string& scriptFile() {
    static const tests::TemporaryDirectory directory;
    static const std::string path = directory.path("script");
    return path;
}

std::string placeOf(std::size_t line) {
    return scriptFile() + ":" + std::to_string(line + 1);
}

bool isSame(const Command& one, const Command& other) {
    return one.verb == other.verb && one.number == other.number && one.address == other.address;
}

// One printable line, when it is shown.
void checkMessage(const std::string& message) {
    require(!message.empty() && message.size() <= kLongestMessage, "a message has another length");
    for (const char c : text::escaped(message)) {
        const auto byte = static_cast<unsigned char>(c);
        require(byte >= 0x20 && byte != 0x7F, "a message drives the terminal");
    }
}

// The message about a wrong line; else empty.
std::string checkLine(const std::string& text, const Line& line) {
    try {
        const std::optional<Command> command = host::parseCommand(text);
        require(command.has_value() == (line.kind == Kind::kCommand), "a line is read otherwise");
        if (command) {
            require(isSame(*command, line.command), "a line is another command");
            const std::optional<Command> again = host::parseCommand(textOf(*command));
            require(again && isSame(*again, *command), "a command written anew is another");
        }
        return "";
    } catch (const host::ScriptError& error) {
        require(line.kind == Kind::kWrong, "a good line is refused");
        checkMessage(error.what());
        return error.what();
    }
}

// Reading as a whole, against reading line by line.
std::vector<Session::PlacedCommand> checkReading(const std::vector<std::string>& texts,
                                                 const std::vector<Line>& lines) {
    std::vector<std::string> problems;
    auto script = Session::readScript(LineReader::openFile(scriptFile()), problems);
    std::size_t command = 0;
    std::size_t problem = 0;
    for (std::size_t index = 0; index < lines.size() && problem <= kMostProblems; ++index) {
        const std::string message = checkLine(texts[index], lines[index]);
        if (lines[index].kind == Kind::kWrong) {
            const bool isLast = problem == kMostProblems;
            require(problem < problems.size() &&
                        problems[problem] == placeOf(index) + ": " +
                                                 (isLast ? "more is wrong from here on" : message),
                    "a problem is told otherwise");
            ++problem;
        } else if (lines[index].kind == Kind::kCommand) {
            require(command < script.size() &&
                        isSame(script[command].command, lines[index].command) &&
                        script[command].place == placeOf(index),
                    "a command is not in its place");
            ++command;
        }
    }
    require(problem == problems.size() && command == script.size(), "there is more than was read");
    return script;
}

std::vector<host::Service> listOf(const tests::Directory& directory) {
    std::vector<host::Service> services;
    for (const auto& [id, service] : directory) {
        services.push_back({id, service.address.value_or("")});
    }
    return services;
}

void checkListing(const std::vector<host::Service>& services, host::Format format,
                  const std::string& listing) {
    if (format == host::Format::Table) {
        const auto lines =
            static_cast<std::size_t>(std::count(listing.begin(), listing.end(), '\n'));
        require(lines == services.size() + 1, "a table has other lines");
        for (const char c : listing) {
            const auto byte = static_cast<unsigned char>(c);
            require((byte >= 0x20 && byte != 0x7F) || c == '\n', "a table drives the terminal");
        }
        return;
    }
    require(listing.find('\n') == listing.size() - 1, "JSON takes more than a line");
    const auto json = nlohmann::json::parse(listing);
    require(json.size() == services.size(), "JSON has other services");
    for (std::size_t index = 0; index < services.size(); ++index) {
        require(json[index]["id"] == services[index].id, "JSON has another service");
        const std::string address = json[index]["address"];
        require(
            address == services[index].address || address.find("\xef\xbf\xbd") != std::string::npos,
            "JSON has another address");
    }
}

// Executes the commands on the model, and says what is written and where it stops: before the line
// that is wrong, or at the one that the plug-in refuses.
struct Expected {
    std::string output;
    std::optional<std::size_t> stop;
    bool isRefused = false;
};

Expected executed(const std::vector<Line>& lines, host::Format format,
                  tests::DirectoryModel& model) {
    Expected expected;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const Command& command = lines[index].command;
        if (lines[index].kind == Kind::kWrong) {
            expected.stop = index;
            return expected;
        }
        if (lines[index].kind == Kind::kBlank) {
            continue;
        }
        switch (command.verb) {
            case Command::Verb::Register:
                model.registerServices({{command.number, command.address}});
                break;
            case Command::Verb::Unregister:
                model.memory.erase(command.number);
                break;
            case Command::Verb::Restart:
                model.finalize();
                model.initialize();
                break;
            case Command::Verb::List: {
                const auto services = listOf(model.memory);
                const std::string listing = host::formatServices(services, format);
                checkListing(services, format, listing);
                expected.output += listing;
                break;
            }
            case Command::Verb::Level:
                if (command.number < 0 || command.number > 7) {
                    expected.stop = index;
                    expected.isRefused = true;
                    return expected;
                }
        }
    }
    return expected;
}

host::Plugin& plugin() {
    static host::Plugin plugin(QV_PLUGIN_FILE);
    return plugin;
}

struct OutputCloser {
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};

// With the commands of a script that was read before, or line by line.
void checkExecution(const std::vector<Line>& lines,
                    const std::vector<Session::PlacedCommand>* script, host::Format format) {
    ModelledFiles files;
    files.write(tests::document(""));
    files.model.initialize();
    plugin().initialize();

    const std::string outputFile = scriptFile() + ".out";
    std::string message;
    bool isRefused = false;
    {
        const std::unique_ptr<std::FILE, OutputCloser> out(std::fopen(outputFile.c_str(), "we"));
        Session session(plugin(), format, out.get());
        try {
            script != nullptr ? session.runScript(*script)
                              : session.runLines(LineReader::openFile(scriptFile()));
        } catch (const host::ScriptError& error) {
            message = error.what();
        } catch (const host::PluginError& error) {
            message = error.what();
            isRefused = true;
        }
    }
    const Expected expected = executed(lines, format, files.model);
    require(message.empty() == !expected.stop, "it stops elsewhere");
    if (expected.stop) {
        const std::string place = placeOf(*expected.stop) + ": ";
        require(message.compare(0, place.size(), place) == 0, "it stops at another line");
        require(isRefused == expected.isRefused, "it stops for another reason");
        checkMessage(message.substr(place.size()));
    }
    require(tests::contentOf(outputFile) == expected.output, "it lists other services");
    std::vector<host::Service> left = plugin().services();
    const std::vector<host::Service> services = listOf(files.model.memory);
    require(std::equal(left.begin(), left.end(), services.begin(), services.end(),
                       [](const host::Service& one, const host::Service& other) {
                           return one.id == other.id && one.address == other.address;
                       }),
            "it leaves another directory");
    files.check();
    plugin().finalize();
    files.model.finalize();
}

}  // namespace

void checkScriptProperties(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    tests::writeFile(scriptFile(), bytes);
    const std::vector<std::string> texts = linesOf(bytes);
    std::vector<Line> lines;
    lines.reserve(texts.size());
    for (const std::string& text : texts) {
        lines.push_back(lineOf(text));
    }
    const auto script = checkReading(texts, lines);
    const bool isGood = std::none_of(lines.begin(), lines.end(),
                                     [](const Line& line) { return line.kind == Kind::kWrong; });
    if (isGood) {
        checkExecution(lines, &script, host::Format::Table);
    }
    checkExecution(lines, nullptr, host::Format::Json);
}

}  // namespace qv::fuzz
