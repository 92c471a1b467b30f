// What text the bytes of a document are.
#ifndef COREFOUNDATION_TEXTENCODING_H
#define COREFOUNDATION_TEXTENCODING_H

#include <CoreFoundation/CFBase.h>

#include <string_view>

#include "Buffer.h"

namespace cf {

// The text of a document, which may be a part of the document's bytes.
struct DecodedText {
    // A text in UTF-16 ends here in front of its first lone surrogate.
    std::string_view utf8;

    // The same text in UTF-16, with all its lone surrogates. Empty if the document is in another
    // encoding and provideUnits() was not called.
    Buffer<UniChar> units;

    // The bytes of `utf8` if they are not the document's own.
    Buffer<char> converted;
};

// Finds out the encoding of the bytes and decodes them. A byte-order mark, which is no part of the
// text, or else the declaration says what the encoding is; without either it is UTF-8. UTF-8 is not
// checked here, since the readers check it where they make strings. Returns false with a constant
// phrase for the reason if the encoding is unknown, or if the bytes are not well formed in it.
bool decodeText(std::string_view bytes, DecodedText& text, const char** reason);

// Makes `units` from `utf8` if they are not there yet. Returns false with a reason if the text is
// not well formed or if memory runs out.
bool provideUnits(DecodedText& text, const char** reason);

}  // namespace cf

#endif  // COREFOUNDATION_TEXTENCODING_H
