// Text from outside, made safe to show: what is written to a log or to a terminal goes through
// here, so that no name or address can forge a line or drive the terminal.
#ifndef QV_TEXT_H
#define QV_TEXT_H

#include <string>
#include <string_view>

namespace qv::text {

// Appends `text` to `out` on one printable line. Control characters come out as \n, \r, \t or as \x
// and two lower-case hex digits. So does each byte of a C1 control, of a character that separates
// lines or turns the direction of text, and of what is no well-formed UTF-8. All else stands as it
// is, the backslash too: the result is for reading, not for decoding.
void appendEscaped(std::string& out, std::string_view text);

std::string escaped(std::string_view text);

}  // namespace qv::text

#endif  // QV_TEXT_H
