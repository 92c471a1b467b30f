// Quotes a text of any length in a message that stays one readable line.
#ifndef QVHOST_CLI_QUOTATION_H
#define QVHOST_CLI_QUOTATION_H

#include <cstddef>
#include <string>
#include <string_view>

namespace qv::host {

// 'text', or the beginning of a long one.
std::string quotation(std::string_view text);

// The text, or as much of it as fits without a cut through a UTF-8 character, and dots.
std::string shortened(std::string_view text, std::size_t longest);

}  // namespace qv::host

#endif  // QVHOST_CLI_QUOTATION_H
