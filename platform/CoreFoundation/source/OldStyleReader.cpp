// SPDX-License-Identifier: Apache-2.0

// clang-format off
// Reads old-style property lists. The grammar of the accepted documents follows, with filler between
// any two parts:
//
//   document   = filler                    an empty dictionary
//              | value
//              | pairs                     of a strings file; the reader ignores the rest
//   value      = string | data | array | dictionary
//   array      = "(" [ value { "," value } [ "," ] ] ")"
//   dictionary = "{" pairs "}"             of equal keys the last value counts
//   pairs      = { string [ "=" value ] ";" }      without a value the key is the value
//   data       = "<" { hex hex | space | line end } ">"     the low byte of a character beyond ASCII
//                                                           counts as a hex digit
//   string     = bare character { bare character }     letter, digit, or one of _ $ / : . -
//              | '"' { character | escape } '"'
//              | "'" { character | escape } "'"
//   escape     = "\" ( "a" | "b" | "f" | "n" | "r" | "t" | "v" )
//              | "\" octal [ octal [ octal ] ]         a NextStep character
//              | "\U" up to four hex                   a UTF-16 unit
//              | "\" any other character, which stands for itself
//   filler     = { space | line end | "//" ... line end | "/*" ... "*/" }
//
// The end of the document also ends a comment. The strings and comments of a document in UTF-16 may
// hold lone surrogates. The nesting is limited, since the functions that read a document call each
// other to that depth.
//
// An array ends in front of a value that cannot be read, and pairs end in front of such a key. Reading
// continues where the reading of that value stopped; this is behind the first quote of an unfinished
// quoted string. So the array ( a, "b ) holds a. Existing files rely on this.
// clang-format on
#include "OldStyleReader.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "Array.h"
#include "Data.h"
#include "Dictionary.h"
#include "Limits.h"
#include "NextStepLatin.h"
#include "String.h"
#include "Text.h"
#include "WrittenSize.h"

namespace cf {

namespace {

bool isLineEnd(UniChar unit) {
    constexpr UniChar kLineSeparator = 0x2028;
    constexpr UniChar kParagraphSeparator = 0x2029;
    return unit == '\n' || unit == '\r' || unit == kLineSeparator || unit == kParagraphSeparator;
}

bool isOctalDigit(UniChar unit) {
    return unit >= '0' && unit <= '7';
}

bool isBare(UniChar unit) {
    const int lower = unit | 0x20;
    return (lower >= 'a' && lower <= 'z') || isDigit(unit) || unit == '_' || unit == '$' ||
           unit == '/' || unit == ':' || unit == '.' || unit == '-';
}

class OldStyleReader {
  public:
    OldStyleReader(const Buffer<UniChar>& document, bool containersAreMutable)
        : containersAreMutable_(containersAreMutable),
          begin_(document.data()),
          at_(begin_),
          end_(begin_ + document.size()) {}

    const Object* read(Refusal& refusal) {
        Value root = readDocument();
        if (root && !written_.fits(root.get())) {
            root = stop(kTooLarge);
        }
        if (!root) {
            refusal = {reason_, lastLine(begin_, at_)};
        }
        return root.pass();
    }

  private:
    using Value = Ref<const Object>;

    // Returns whether these two characters follow the cursor.
    bool isAt(char first, char second) const {
        return end_ - at_ >= 2 && at_[0] == first && at_[1] == second;
    }

    // Stores the reason unless there is one already: a reason that follows without a value in
    // between is a consequence of the first.
    Value refuse(const char* reason) {
        if (reason_ == nullptr) {
            reason_ = reason;
        }
        return {};
    }

    // Returns whether memory ran out or the tree is too large. A value that is absent for such a
    // reason must not end an array.
    bool isStopped() const { return reason_ == kOutOfMemory || reason_ == kTooLarge; }

    // Stores a reason that ends the reading.
    Value stop(const char* reason) {
        reason_ = reason;
        return {};
    }

    Value made(const Object* object) {
        return object == nullptr ? stop(kOutOfMemory) : Value(object);
    }

    Value made(Container* container) {
        if (container != nullptr) {
            container->isMutable = containersAreMutable_;
        }
        return made(static_cast<const Object*>(container));
    }

    Value readDocument() {
        if (at_ == end_) {
            return refuse("no text");
        }
        if (!skipFiller()) {
            return made(makeDictionary());
        }
        Value root = readValue(0);
        if (!root || !skipFiller()) {
            return root;
        }
        if (typeOf(root.get()) != Type::String) {
            return refuse("text behind the end");
        }
        at_ = begin_;
        return readPairs(1);
    }

    // Moves the cursor behind the filler. Returns whether any text follows.
    bool skipFiller() {
        while (at_ < end_) {
            if (*at_ == ' ' || *at_ == '\t' || *at_ == '\v' || *at_ == '\f' || isLineEnd(*at_)) {
                ++at_;
            } else if (isAt('/', '/')) {
                at_ = std::find_if(at_, end_, isLineEnd);
            } else if (isAt('/', '*')) {
                skipComment();
            } else {
                return true;
            }
        }
        return false;
    }

    void skipComment() {
        constexpr char kEnd[] = {'*', '/'};
        at_ = std::search(at_ + 2, end_, std::begin(kEnd), std::end(kEnd));
        at_ = at_ == end_ ? end_ : at_ + std::size(kEnd);
    }

    bool follows(char character) { return skipFiller() && *at_ == character; }

    bool take(char character) {
        if (!follows(character)) {
            return false;
        }
        ++at_;
        return true;
    }

    // Reads a value inside of `depth` containers. Returns no value, with a reason, if there is
    // none.
    Value readValue(std::size_t depth) {
        if (!skipFiller()) {
            return refuse("the document ends where a value should be");
        }
        if (depth > kMaximumOldStyleNesting) {
            return refuse(kNestedTooDeep);
        }
        switch (*at_) {
            case '(':
                return counted(readArray(depth + 1), depth);
            case '{':
                return counted(readDictionary(depth + 1), depth);
            case '<':
                return counted(readData(), depth);
            default:
                return counted(readString(), depth);
        }
    }

    // Counts the object. Returns it, or no value if it makes the tree too large.
    Value counted(Value object, std::size_t depth) {
        return !object || written_.add(object.get(), depth) ? std::move(object) : stop(kTooLarge);
    }

    Value readArray(std::size_t depth) {
        ++at_;
        Array* const array = makeArray();
        Value owner = made(array);
        if (!owner) {
            return {};
        }
        for (Value value = readValue(depth); value; value = readValue(depth)) {
            if (!appendTaking(*array, value.pass())) {
                return stop(kOutOfMemory);
            }
            reason_ = nullptr;
            if (!take(',')) {
                break;
            }
        }
        if (isStopped()) {
            return {};
        }
        return take(')') ? std::move(owner) : refuse("an array without its end");
    }

    Value readDictionary(std::size_t depth) {
        ++at_;
        Value dictionary = readPairs(depth);
        if (dictionary && !take('}')) {
            return refuse("a dictionary without its end");
        }
        return dictionary;
    }

    // Reads pairs up to the first character that does not begin a key, and returns their
    // dictionary.
    Value readPairs(std::size_t depth) {
        Dictionary* const dictionary = makeDictionary();
        Value owner = made(dictionary);
        if (!owner) {
            return {};
        }
        while (skipFiller()) {
            Value key = counted(readString(), depth);
            if (!key) {
                break;
            }
            Value value;
            if (take('=')) {
                value = readValue(depth);
            } else if (follows(';')) {
                value = sameAs(key, depth);
            } else {
                return refuse("neither = nor ; behind a key");
            }
            if (!value) {
                return {};
            }
            if (!insertTaking(*dictionary, key.pass(), value.pass(), Present::Replace)) {
                return stop(kOutOfMemory);
            }
            reason_ = nullptr;
            if (!take(';')) {
                return refuse("a pair without ; at its end");
            }
        }
        return isStopped() ? Value() : std::move(owner);
    }

    // Returns the key as the value inside of `depth` containers.
    Value sameAs(const Value& key, std::size_t depth) {
        if (depth > kMaximumOldStyleNesting) {
            return refuse(kNestedTooDeep);
        }
        retain(key.get());
        return counted(Value(key.get()), depth);
    }

    // Reads a string. Returns no value, with a reason, if there is none.
    Value readString() {
        if (*at_ == '"' || *at_ == '\'') {
            return readQuoted(*at_++);
        }
        const UniChar* const start = at_;
        while (at_ < end_ && isBare(*at_)) {
            ++at_;
        }
        if (at_ == start) {
            return refuse("a character that begins nothing");
        }
        return made(makeStringFromUnits(start, lengthSince(start)));
    }

    Value readQuoted(UniChar quote) {
        const UniChar* const start = at_;
        const UniChar* piece = start;
        bool hasEscapes = false;
        units_.shrinkTo(0);
        while (at_ < end_ && *at_ != quote) {
            if (*at_ != '\\') {
                ++at_;
                continue;
            }
            hasEscapes = true;
            if (!addPiece(piece)) {
                return stop(kOutOfMemory);
            }
            ++at_;
            const UniChar* const escape = at_;
            if (!readEscape()) {
                return stop(kOutOfMemory);
            }
            piece = at_;
            if (at_ == escape && at_ < end_) {
                ++at_;  // The character, perhaps a quote, stands for itself.
            }
        }
        if (at_ == end_) {
            at_ = start;
            return refuse("a quoted string without its end");
        }
        if (hasEscapes && !addPiece(piece)) {
            return stop(kOutOfMemory);
        }
        const std::size_t length = lengthSince(start);
        ++at_;
        return made(hasEscapes ? makeStringFromUnits(units_.data(), units_.size())
                               : makeStringFromUnits(start, length));
    }

    std::size_t lengthSince(const UniChar* start) const {
        return static_cast<std::size_t>(at_ - start);
    }

    // Appends the text from `piece` to the cursor.
    bool addPiece(const UniChar* piece) { return units_.append(piece, lengthSince(piece)); }

    // Reads the escape behind a backslash and appends its character. Reads nothing if the next
    // character stands for itself. Returns false if memory runs out.
    bool readEscape() {
        if (at_ == end_) {
            return true;
        }
        if (isOctalDigit(*at_)) {
            unsigned number = 0;
            for (int digits = 0; digits < 3 && at_ < end_ && isOctalDigit(*at_); ++digits, ++at_) {
                number = number << 3 | static_cast<unsigned>(*at_ - '0');
            }
            return units_.append(nextStepLatinToUnicode(static_cast<unsigned char>(number)));
        }
        if (*at_ == 'U') {
            ++at_;
            unsigned unit = 0;
            for (int digits = 0; digits < 4 && at_ < end_ && hexDigit(*at_) != kNoDigit;
                 ++digits, ++at_) {
                unit = unit << 4 | hexDigit(*at_);
            }
            return units_.append(static_cast<UniChar>(unit));
        }
        constexpr std::string_view kLetters = "abfnrtv";
        constexpr std::string_view kMeanings = "\a\b\f\n\r\t\v";
        const std::size_t letter =
            *at_ < 0x80 ? kLetters.find(static_cast<char>(*at_)) : std::string_view::npos;
        if (letter == std::string_view::npos) {
            return true;
        }
        ++at_;
        return units_.append(static_cast<UniChar>(kMeanings[letter]));
    }

    Value readData() {
        ++at_;
        bytes_.shrinkTo(0);
        while (at_ < end_ && *at_ != '>') {
            if (*at_ == ' ' || *at_ == '\t' || isLineEnd(*at_)) {
                ++at_;
                continue;
            }
            const unsigned high = takeHexDigit();
            const unsigned low = takeHexDigit();
            if (high == kNoDigit || low == kNoDigit) {
                return refuse(high == kNoDigit ? "data with other characters than hex digits"
                                               : "data with half a byte");
            }
            if (!bytes_.append(static_cast<char>(high << 4 | low))) {
                return stop(kOutOfMemory);
            }
        }
        if (at_ == end_) {
            return refuse("data without its end");
        }
        ++at_;
        return made(makeData({bytes_.data(), bytes_.size()}));
    }

    // Reads a hex digit. Returns kNoDigit and reads nothing if there is none. The low byte of a
    // character beyond ASCII counts as a digit.
    unsigned takeHexDigit() {
        const unsigned digit = at_ < end_ ? hexDigit(*at_ & 0xFF) : kNoDigit;
        if (digit != kNoDigit) {
            ++at_;
        }
        return digit;
    }

    const bool containersAreMutable_;
    const UniChar* const begin_;
    const UniChar* at_;
    const UniChar* const end_;
    const char* reason_ = nullptr;
    WrittenSize written_;
    Buffer<UniChar> units_;  // The units of a string with escapes.
    Buffer<char> bytes_;     // The bytes of data.
};

}  // namespace

const Object* readOldStyle(const Buffer<UniChar>& document, bool containersAreMutable,
                           Refusal& refusal) {
    return OldStyleReader(document, containersAreMutable).read(refusal);
}

}  // namespace cf
