// SPDX-License-Identifier: Apache-2.0

#include "XmlScanner.h"

#include <cstdint>

#include "Unicode.h"

namespace cf {

// Moves the cursor behind the next `mark`.
bool XmlScanner::skipTo(std::string_view mark, const char* reason) {
    const std::size_t found = rest().find(mark);
    if (found == std::string_view::npos) {
        return fail(reason);
    }
    at_ += found + mark.size();
    return true;
}

bool XmlScanner::skipComment() {
    return skipTo("-->", "a comment without its end");
}

bool XmlScanner::skipInstruction() {
    return skipTo("?>", "a processing instruction without its end");
}

bool XmlScanner::skipDoctype() {
    constexpr std::string_view kDoctype = "DOCTYPE";
    if (!isAt(kDoctype)) {
        return fail("neither a comment nor a document type");
    }
    at_ += kDoctype.size();
    while (at_ < end_ && *at_ != '>') {
        if (*at_ == '[') {
            return fail("a document type with definitions of its own");
        }
        ++at_;
    }
    if (at_ == end_) {
        return fail("a document type without its end");
    }
    ++at_;
    return true;
}

bool XmlScanner::skipProlog() {
    for (;;) {
        skipSpace();
        if (left() < 2) {
            return fail("no element");
        }
        if (*at_ != '<') {
            return fail("text in front of the first element");
        }
        ++at_;
        bool isSkipped = true;
        if (*at_ == '?') {
            ++at_;
            isSkipped = skipInstruction();
        } else if (isAt("!--")) {
            at_ += 3;
            isSkipped = skipComment();
        } else if (*at_ == '!') {
            ++at_;
            isSkipped = skipDoctype();
        } else {
            return true;
        }
        if (!isSkipped) {
            return false;
        }
    }
}

// Skips a comment or a processing instruction inside an element. The two dashes that begin a
// comment may also end it, and the question mark that begins an instruction may also end it.
bool XmlScanner::skipFillerMarkup() {
    if (isAt("<?")) {
        ++at_;
        return skipInstruction();
    }
    if (!isAt("<!--")) {
        return fail("neither a comment nor an element");
    }
    at_ += 3;
    return skipComment();
}

// Reads a text that has entities or CDATA sections, and joins its parts.
bool XmlScanner::readPieces(std::string_view& text) {
    pieces_.shrinkTo(0);
    for (;;) {
        const char* const start = at_;
        at_ = endOfText(at_, end_);
        if (!pieces_.append(start, static_cast<std::size_t>(at_ - start))) {
            return fail(kOutOfMemory);
        }
        if (at_ < end_ && *at_ == '&') {
            if (!readEntity()) {
                return false;
            }
        } else if (!isAt("<!")) {
            text = {pieces_.data(), pieces_.size()};
            return true;
        } else if (!readCdata()) {
            return false;
        }
    }
}

bool XmlScanner::readCdata() {
    constexpr std::string_view kStart = "<![CDATA[";
    constexpr std::string_view kEnd = "]]>";
    if (!isAt(kStart)) {
        return fail("markup inside a string");
    }
    at_ += kStart.size();
    const char* const start = at_;
    if (!skipTo(kEnd, "a CDATA section without its end")) {
        return false;
    }
    const auto size = static_cast<std::size_t>(at_ - start) - kEnd.size();
    return pieces_.append(start, size) || fail(kOutOfMemory);
}

bool XmlScanner::readEntity() {
    struct Entity {
        std::string_view name;
        char character;
    };
    constexpr Entity kEntities[] = {
        {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&apos;", '\''}, {"&quot;", '"'}};

    if (isAt("&#")) {
        return readNumericEntity();
    }
    for (const Entity& entity : kEntities) {
        if (isAt(entity.name)) {
            at_ += entity.name.size();
            return pieces_.append(entity.character) || fail(kOutOfMemory);
        }
    }
    return fail("an unknown entity");
}

bool XmlScanner::readNumericEntity() {
    constexpr int kMostDigits = 8;
    at_ += 2;
    const bool isHex = at_ < end_ && *at_ == 'x';
    if (isHex) {
        ++at_;
    }
    const unsigned base = isHex ? 16 : 10;
    std::uint32_t codePoint = 0;
    for (int digits = 0; at_ < end_ && *at_ != ';'; ++digits, ++at_) {
        const unsigned digit = hexDigit(*at_);
        if (digit >= base || digits == kMostDigits) {
            return fail("a character reference that is no number");
        }
        codePoint = codePoint * base + digit;
    }
    if (at_ == end_ || codePoint > kLastCodePoint || isSurrogate(codePoint)) {
        return fail("a reference to no character");
    }
    ++at_;
    char bytes[4] = {};
    const char* const end = writeUtf8(codePoint, bytes);
    return pieces_.append(bytes, static_cast<std::size_t>(end - bytes)) || fail(kOutOfMemory);
}

}  // namespace cf
