// Quotes a text of any length in a message that stays one readable line.
#ifndef QVHOST_QUOTATION_H
#define QVHOST_QUOTATION_H

#include <string>
#include <string_view>

namespace qv::host {

// 'text', or the beginning of a long one.
std::string quotation(std::string_view text);

}  // namespace qv::host

#endif  // QVHOST_QUOTATION_H
