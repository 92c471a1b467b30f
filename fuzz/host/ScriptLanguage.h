// The language of scripts once more, for comparison: a line is split into words first, and what it
// means is looked up by their number.
#ifndef QV_FUZZ_SCRIPT_LANGUAGE_H
#define QV_FUZZ_SCRIPT_LANGUAGE_H

#include <Command.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv::fuzz {

struct Line {
    enum class Kind { kBlank, kCommand, kWrong };

    Kind kind = Kind::kBlank;
    host::Command command;
};

// Without their newlines, and without the byte order mark.
std::vector<std::string> linesOf(std::string_view script);

Line lineOf(std::string_view text);

// The line that means the command.
std::string textOf(const host::Command& command);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_SCRIPT_LANGUAGE_H
