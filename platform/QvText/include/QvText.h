// Text from outside, made safe to show: what is written to a log or to a terminal goes through
// here, so that no name or address can forge a line or drive the terminal.
#ifndef QV_TEXT_H
#define QV_TEXT_H

#include <string>
#include <string_view>

namespace qv::text {

// Appends `text` to `out` on one printable line of UTF-8. These come out escaped:
//
//     \n \r \t \\      the controls of these names, and the backslash
//     \x1b \xe2\x80    each byte of any other control, of a character that cannot be seen or that
//                      separates lines or turns the direction of text, and of ill-formed UTF-8
//
// All else stands as it is. So two texts that look alike here have the same bytes, but for
// characters that a font shows alike.
void appendEscaped(std::string& out, std::string_view text);

std::string escaped(std::string_view text);

}  // namespace qv::text

#endif  // QV_TEXT_H
