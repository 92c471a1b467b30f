// SPDX-License-Identifier: Apache-2.0

// Decodes the bytes of a document into text.
#ifndef COREFOUNDATION_TEXTENCODING_H
#define COREFOUNDATION_TEXTENCODING_H

#include <CoreFoundation/CFBase.h>

#include <string_view>

#include "Buffer.h"

namespace cf {

// The text of a document, which may be a part of the document's bytes.
struct DecodedText {
    // The text in UTF-8. If the document is in UTF-16, the text ends in front of its first lone
    // surrogate.
    std::string_view utf8;

    // The same text in UTF-16, with all its lone surrogates. Empty if the document is in another
    // encoding and provideUnits() was not called.
    Buffer<UniChar> units;

    // Holds the bytes of `utf8` if they are not a part of the document.
    Buffer<char> converted;
};

// Finds out the encoding of the bytes and decodes them. A byte-order mark decides the encoding and
// is not a part of the text. Without a mark the declaration decides, and without a declaration the
// encoding is UTF-8. UTF-8 is not checked here, since the readers check it when they create
// strings. Returns false with a constant text as the reason if the encoding is unknown, if the
// bytes are not well-formed in it, or if memory runs out.
bool decodeText(std::string_view bytes, DecodedText& text, const char** reason);

// Decodes `utf8` into `units` unless `units` holds the text already. Returns false with a reason if
// the text is not well-formed, or if memory runs out.
bool provideUnits(DecodedText& text, const char** reason);

}  // namespace cf

#endif  // COREFOUNDATION_TEXTENCODING_H
