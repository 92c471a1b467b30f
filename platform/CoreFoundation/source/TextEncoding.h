// What text the bytes of a document are.
#ifndef COREFOUNDATION_TEXTENCODING_H
#define COREFOUNDATION_TEXTENCODING_H

#include <string_view>

#include "Buffer.h"

namespace cf {

// The text in UTF-8, a part of the given bytes or of `converted`. A byte-order mark, which is no
// part of it, or else the declaration says what the bytes are; without either they are UTF-8, which
// is not checked here, since the parsers check it where they make strings. False, with a constant
// phrase for the reason, where the encoding is unknown, or the bytes are not well-formed in it.
bool decodeText(std::string_view bytes, Buffer<char>& converted, std::string_view* text,
                const char** reason);

}  // namespace cf

#endif  // COREFOUNDATION_TEXTENCODING_H
