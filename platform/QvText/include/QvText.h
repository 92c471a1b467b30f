// SPDX-License-Identifier: Apache-2.0

// Escapes text from outside before it is written to a log or a terminal, so that no name or address
// can forge a line or control the terminal.
#ifndef QV_TEXT_H
#define QV_TEXT_H

#include <string>
#include <string_view>

namespace qv::text {

// Appends `text` to `out` as one printable line of UTF-8. These are escaped:
//
//     \n \r \t \\      the control characters of these names, and the backslash
//     \x1b \xe2\x80    each byte of any other control character, of a character that is invisible,
//                      separates lines or changes the direction of text, and of ill-formed UTF-8
//
// Everything else stays as it is. Two different texts never have the same escaped form.
void appendEscaped(std::string& out, std::string_view text);

// Returns the escaped form of `text`.
std::string escaped(std::string_view text);

// Returns `text` as one printable line, for messages to people. Escapes the same as escaped(), but
// leaves each backslash alone. So a text that is printable stays as it is, and a message may quote
// words that somebody else has escaped.
std::string printable(std::string_view text);

}  // namespace qv::text

#endif  // QV_TEXT_H
