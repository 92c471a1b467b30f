// SPDX-License-Identifier: Apache-2.0

// Quotes texts of any length in messages that stay one readable line.
#ifndef QVHOST_CLI_QUOTATION_H
#define QVHOST_CLI_QUOTATION_H

#include <cstddef>
#include <string>
#include <string_view>

namespace qv::host {

// Returns the text, or the beginning of a long one, in quotation marks.
std::string quotation(std::string_view text);

// Returns the text. If it has more than `longest` bytes, returns as many whole characters as fit,
// and dots.
std::string shortened(std::string_view text, std::size_t longest);

}  // namespace qv::host

#endif  // QVHOST_CLI_QUOTATION_H
