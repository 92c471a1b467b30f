// The script's language, one command a line:
//
//     register ID ADDRESS    the address is the rest of the line, without the white space around it
//     unregister ID
//     list
//     level N
//     restart
//
// A # at the start of a line or after white space begins a comment. Blank lines mean nothing. An
// identifier is a signed 32-bit number, decimal, or hexadecimal from 0x0 to 0x7fffffff.
#ifndef QVHOST_SCRIPT_H
#define QVHOST_SCRIPT_H

#include <optional>
#include <string_view>

#include "Command.h"

namespace qv::host {

// The command that a line, given without its newline, holds; nothing when the line is blank or a
// comment. Throws ScriptError, whose message does not name the line.
std::optional<Command> parseCommand(std::string_view line);

}  // namespace qv::host

#endif  // QVHOST_SCRIPT_H
