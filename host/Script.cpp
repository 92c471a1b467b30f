#include "Script.h"

#include <fmt/format.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Numbers.h"
#include "Quotation.h"
#include "ScriptError.h"
#include "Suggestion.h"

namespace qv::host {

namespace {

constexpr std::string_view kWhiteSpace = " \t\r\v\f";

struct VerbName {
    std::string_view name;
    Command::Verb verb;
    std::string_view usage;
};

constexpr VerbName kVerbs[] = {
    {"register", Command::Verb::Register, "register ID ADDRESS"},
    {"unregister", Command::Verb::Unregister, "unregister ID"},
    {"list", Command::Verb::List, "list"},
    {"level", Command::Verb::Level, "level N"},
    {"restart", Command::Verb::Restart, "restart"},
};

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

std::string_view withoutComment(std::string_view line) {
    std::size_t hash = line.find('#');
    while (hash != std::string_view::npos && hash != 0 &&
           kWhiteSpace.find(line[hash - 1]) == std::string_view::npos) {
        hash = line.find('#', hash + 1);
    }
    return line.substr(0, hash);
}

// Takes the first word off the text, and the white space after it.
std::string_view takeWord(std::string_view& text) {
    const std::string_view word = text.substr(0, text.find_first_of(kWhiteSpace));
    text = trimmed(text.substr(word.size()));
    return word;
}

const VerbName& findVerb(std::string_view word) {
    std::vector<std::string_view> names;
    for (const VerbName& verb : kVerbs) {
        if (verb.name == word) {
            return verb;
        }
        names.push_back(verb.name);
    }
    const std::string_view closest = closestWord(word, names);
    if (!closest.empty()) {
        throw ScriptError(
            fmt::format("unknown command {} (did you mean '{}'?)", quotation(word), closest));
    }
    throw ScriptError(fmt::format("unknown command {} (the commands are {})", quotation(word),
                                  fmt::join(names, ", ")));
}

}  // namespace

std::optional<Command> parseCommand(std::string_view line) {
    if (line.find('\0') != std::string_view::npos) {
        throw ScriptError("the line holds a NUL byte; a script is plain text in UTF-8");
    }
    const std::string_view uncommented = withoutComment(line);
    const bool commented = uncommented.size() < line.size();
    std::string_view rest = trimmed(uncommented);
    if (rest.empty()) {
        return std::nullopt;
    }

    const VerbName& verb = findVerb(takeWord(rest));
    Command command;
    command.verb = verb.verb;
    const auto wrongUse = [&](std::string_view problem) {
        return ScriptError(fmt::format("{} {} (usage: {})", verb.name, problem, verb.usage));
    };
    switch (verb.verb) {
        case Command::Verb::Register:
            if (rest.empty()) {
                throw wrongUse("needs an identifier and an address");
            }
            command.number = parseIdentifier(takeWord(rest));
            if (rest.empty()) {
                // The address may be there, and begin with a #.
                throw wrongUse(commented ? "needs an address before the comment, which begins at "
                                           "the # after white space"
                                         : "needs an address after the identifier");
            }
            command.address = std::string(rest);
            return command;
        case Command::Verb::Unregister:
            if (rest.empty()) {
                throw wrongUse("needs an identifier");
            }
            command.number = parseIdentifier(takeWord(rest));
            break;
        case Command::Verb::Level:
            if (rest.empty()) {
                throw wrongUse("needs a number");
            }
            // The plug-in decides which levels it takes; the script is wrong only where no 32-bit
            // number stands.
            command.number = parseLevel(takeWord(rest));
            break;
        case Command::Verb::List:
        case Command::Verb::Restart:
            break;
    }
    if (!rest.empty()) {
        throw wrongUse(fmt::format("takes nothing more, but {} follows", quotation(rest)));
    }
    return command;
}

}  // namespace qv::host
