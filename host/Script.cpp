#include "Script.h"

#include <fmt/format.h>

#include <charconv>
#include <cstddef>
#include <string>
#include <system_error>
#include <vector>

#include "ScriptError.h"
#include "Suggestion.h"

namespace qv::host {

namespace {

constexpr std::string_view kWhiteSpace = " \t\r\v\f";
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";
constexpr std::size_t kLongestQuotation = 40;

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

// A message stays one readable line whatever the script holds.
std::string quoted(std::string_view text) {
    if (text.size() <= kLongestQuotation) {
        return fmt::format("'{}'", text);
    }
    std::size_t length = kLongestQuotation;
    while (length > kLongestQuotation - 3 &&
           (static_cast<unsigned char>(text[length]) & 0xc0) == 0x80) {
        --length;  // not through the middle of a UTF-8 character
    }
    return fmt::format("'{}...'", text.substr(0, length));
}

bool consistsOf(std::string_view text, std::string_view characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

// `what` is what the number stands for; `range` is what may be written, for the message.
int32_t parseNumber(std::string_view text, std::string_view what, std::string_view range) {
    const bool hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    const bool negative = text.substr(0, 1) == "-";
    const std::string_view digits = text.substr(hexadecimal ? 2 : (negative ? 1 : 0));
    if (!consistsOf(digits, hexadecimal ? kHexDigits : kDigits)) {
        throw ScriptError(
            fmt::format("{} must be a number ({}), not {}", what, range, quoted(text)));
    }
    const std::string_view number = hexadecimal ? digits : text;
    int32_t value = 0;
    const std::from_chars_result result =
        std::from_chars(number.data(), number.data() + number.size(), value, hexadecimal ? 16 : 10);
    if (result.ec != std::errc()) {
        throw ScriptError(fmt::format("{} {} is out of range ({})", what, quoted(text), range));
    }
    return value;
}

int32_t parseIdentifier(std::string_view text) {
    return parseNumber(text, "identifier", "-2147483648 to 2147483647, or 0x0 to 0x7fffffff");
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
            fmt::format("unknown command {} (did you mean '{}'?)", quoted(word), closest));
    }
    throw ScriptError(fmt::format("unknown command {} (the commands are {})", quoted(word),
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
            command.number = parseNumber(takeWord(rest), "level", "0 to 7");
            break;
        case Command::Verb::List:
        case Command::Verb::Restart:
            break;
    }
    if (!rest.empty()) {
        throw wrongUse(fmt::format("takes nothing more, but {} follows", quoted(rest)));
    }
    return command;
}

}  // namespace qv::host
