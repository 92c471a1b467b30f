#include "host/ScriptLanguage.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "host/Identifiers.h"

namespace qv::fuzz {
namespace {

using Verb = host::Command::Verb;

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r' && c != '\n');
}

struct Word {
    std::size_t begin;
    std::size_t end;
};

// Up to the first that begins with a #.
std::vector<Word> wordsOf(std::string_view text) {
    std::vector<Word> words;
    for (std::size_t end = 0;;) {
        std::size_t begin = end;
        while (begin < text.size() && isBlank(text[begin])) {
            ++begin;
        }
        if (begin == text.size() || text[begin] == '#') {
            return words;
        }
        end = begin;
        while (end < text.size() && !isBlank(text[end])) {
            ++end;
        }
        words.push_back({begin, end});
    }
}

Line wrong() {
    return {Line::Kind::kWrong, {}};
}

}  // namespace

std::vector<std::string> linesOf(std::string_view script) {
    std::vector<std::string> lines;
    if (script.substr(0, 3) == "\xef\xbb\xbf") {
        script.remove_prefix(3);
        // A line of its own, though nothing else is in it.
        if (script.empty()) {
            return {""};
        }
    }
    while (!script.empty()) {
        const std::size_t end = std::min(script.find('\n'), script.size());
        lines.emplace_back(script.substr(0, end));
        script.remove_prefix(std::min(end + 1, script.size()));
    }
    return lines;
}

Line lineOf(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
        return wrong();
    }
    const std::vector<Word> words = wordsOf(text);
    if (words.empty()) {
        return {};
    }
    const auto word = [&](std::size_t index) {
        return text.substr(words[index].begin, words[index].end - words[index].begin);
    };
    Line line{Line::Kind::kCommand, {}};
    host::Command& command = line.command;
    if (words.size() == 1) {
        if (word(0) == "list") {
            command.verb = Verb::List;
            return line;
        }
        if (word(0) == "restart") {
            command.verb = Verb::Restart;
            return line;
        }
        return wrong();
    }
    const std::optional<std::int32_t> number = numberOf(word(1));
    if (!number) {
        return wrong();
    }
    command.number = *number;
    if (word(0) == "register" && words.size() > 2) {
        command.verb = Verb::Register;
        const std::size_t begin = words[2].begin;
        command.address = text.substr(begin, words.back().end - begin);
        return line;
    }
    if (words.size() == 2 && (word(0) == "unregister" || word(0) == "level")) {
        command.verb = word(0) == "level" ? Verb::Level : Verb::Unregister;
        return line;
    }
    return wrong();
}

std::string textOf(const host::Command& command) {
    const std::string number = std::to_string(command.number);
    switch (command.verb) {
        case Verb::Register:
            return "register " + number + " " + command.address;
        case Verb::Unregister:
            return "unregister " + number;
        case Verb::Level:
            return "level " + number;
        case Verb::Restart:
            return "restart";
        case Verb::List:
            break;
    }
    return "list";
}

}  // namespace qv::fuzz
