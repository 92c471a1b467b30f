#include "host/ScriptLanguage.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

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

std::optional<std::int32_t> numberOf(std::string_view text) {
    std::int64_t base = 10;
    std::int64_t sign = 1;
    if (text.size() > 1 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    } else if (!text.empty() && text[0] == '-') {
        sign = -1;
        text.remove_prefix(1);
    }
    if (text.empty()) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    for (const char c : text) {
        const std::string_view digits = "0123456789abcdef";
        const std::size_t digit =
            digits.find(static_cast<char>(c >= 'A' && c <= 'F' ? c - 'A' + 'a' : c));
        if (digit == std::string_view::npos || static_cast<std::int64_t>(digit) >= base) {
            return std::nullopt;
        }
        // Far outside, and it stays there.
        value = std::min(value * base + static_cast<std::int64_t>(digit), std::int64_t{1} << 40);
    }
    value *= sign;
    if (value < std::numeric_limits<std::int32_t>::min() ||
        value > std::numeric_limits<std::int32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<std::int32_t>(value);
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
