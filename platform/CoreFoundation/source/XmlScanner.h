// SPDX-License-Identifier: Apache-2.0

// Reads the markup and the text of an XML property list, piece by piece. XmlReader.cpp decides the
// meaning of the pieces and states the accepted grammar.
#ifndef COREFOUNDATION_XMLSCANNER_H
#define COREFOUNDATION_XMLSCANNER_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "Buffer.h"
#include "Refusal.h"
#include "Text.h"

namespace cf {

// A cursor in a document. Each function starts where the previous one left the cursor. A function
// that fails returns false and stores the reason.
class XmlScanner {
  public:
    explicit XmlScanner(std::string_view document)
        : begin_(document.data()), at_(begin_), end_(begin_ + document.size()) {}

    // Moves the cursor behind the "<" of the first element.
    bool skipProlog();

    // States which markup follows inside a container.
    enum class Next {
        Start,      // A start tag follows; the cursor is behind its "<".
        End,        // An end tag follows; the cursor is on its "<".
        StrayLess,  // "<<" follows; the cursor is on the second "<".
        Nothing     // The document is refused; the reason is stored.
    };
    // Skips spaces, comments and processing instructions, and returns the markup that follows.
    Next next();

    struct Tag {
        std::string_view name;
        bool isEmpty;
    };

    // Reads a start tag, from behind its "<" to behind its ">".
    bool readTag(Tag& tag);

    bool readEndTag(std::string_view name);

    // Returns whether `text` follows the cursor.
    bool isAt(std::string_view text) const { return startsWith(rest(), text); }

    // Reads the text up to the next tag, with its entities and CDATA sections decoded. The text
    // stays valid until the next call.
    bool readText(std::string_view& text);

    // Returns the bytes up to the next "<", and moves the cursor there.
    std::string_view readBytes() {
        const char* const start = at_;
        while (at_ < end_ && *at_ != '<') {
            ++at_;
        }
        return {start, static_cast<std::size_t>(at_ - start)};
    }

    // Stores the reason for which the document is refused.
    std::nullptr_t refuse(const char* reason) {
        reason_ = reason;
        return nullptr;
    }
    const char** reason() { return &reason_; }

    // Returns the reason and the line of the cursor.
    Refusal refusal() const { return {reason_, lastLine(begin_, at_ < end_ ? at_ : end_)}; }

  private:
    std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
    std::string_view rest() const { return {at_, left()}; }

    bool fail(const char* reason) {
        reason_ = reason;
        return false;
    }

    static bool isSpace(char byte) {
        return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
    }
    void skipSpace() {
        while (at_ < end_ && isSpace(*at_)) {
            ++at_;
        }
    }
    static const char* endOfText(const char* at, const char* end);
    bool skipTo(std::string_view mark, const char* reason);
    bool skipComment();
    bool skipInstruction();
    bool skipDoctype();
    bool skipFillerMarkup();
    bool readPieces(std::string_view& text);
    bool readCdata();
    bool readEntity();
    bool readNumericEntity();

    const char* const begin_;
    const char* at_;
    const char* const end_;
    const char* reason_ = nullptr;
    Buffer<char> pieces_;  // The parts of a text with entities or CDATA sections.
};

// The functions below are called for every element, so they are inline.

// Returns the end of the text: the next < or &, or the end of the document.
inline const char* XmlScanner::endOfText(const char* at, const char* end) {
    return std::find_if(at, end, [](char byte) { return byte == '<' || byte == '&'; });
}

inline XmlScanner::Next XmlScanner::next() {
    do {
        skipSpace();
        if (left() < 2) {
            fail("the document ends inside an element");
            return Next::Nothing;
        }
        if (*at_ != '<') {
            fail("text where an element should be");
            return Next::Nothing;
        }
        switch (at_[1]) {
            case '/':
                return Next::End;
            case '<':
                ++at_;
                return Next::StrayLess;
            case '?':
            case '!':
                break;
            default:
                ++at_;
                return Next::Start;
        }
    } while (skipFillerMarkup());
    return Next::Nothing;
}

inline bool XmlScanner::readTag(Tag& tag) {
    const char* const start = at_;
    const char* nameEnd = nullptr;
    while (at_ < end_ && *at_ != '>') {
        if (nameEnd == nullptr && isSpace(*at_)) {
            nameEnd = at_;
        }
        ++at_;
    }
    if (at_ == end_) {
        return fail("a tag without its end");
    }
    tag.isEmpty = at_ != start && at_[-1] == '/';
    if (nameEnd == nullptr) {
        nameEnd = tag.isEmpty ? at_ - 1 : at_;
    }
    ++at_;
    tag.name = {start, static_cast<std::size_t>(nameEnd - start)};
    return true;
}

inline bool XmlScanner::readEndTag(std::string_view name) {
    if (left() < name.size() + 3) {
        return fail("the document ends inside an element");
    }
    if (at_[0] != '<' || at_[1] != '/' || std::memcmp(at_ + 2, name.data(), name.size()) != 0) {
        return fail("something other than the end of the element");
    }
    at_ += 2 + name.size();
    skipSpace();
    if (at_ == end_ || *at_ != '>') {
        return fail("an end tag without its end");
    }
    ++at_;
    return true;
}

inline bool XmlScanner::readText(std::string_view& text) {
    const char* const start = at_;
    at_ = endOfText(at_, end_);
    if (left() > 1 && at_[0] == '<' && at_[1] != '!') {
        text = {start, static_cast<std::size_t>(at_ - start)};
        return true;
    }
    at_ = start;
    return readPieces(text);
}

}  // namespace cf

#endif  // COREFOUNDATION_XMLSCANNER_H
