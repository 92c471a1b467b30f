// clang-format off
// What is accepted, with filler between any two parts:
//
//   document   = filler                    an empty dictionary
//              | value
//              | pairs                     of a strings file; what follows them is not looked at
//   value      = string | data | array | dictionary
//   array      = "(" [ value { "," value } [ "," ] ] ")"
//   dictionary = "{" pairs "}"             of equal keys the last value counts
//   pairs      = { string [ "=" value ] ";" }      without a value the key is the value
//   data       = "<" { hex hex | space | line end } ">"
//   string     = bare character { bare character }     letter, digit, or one of _ $ / : . -
//              | '"' { character | escape } '"'
//              | "'" { character | escape } "'"
//   escape     = "\" ( "a" | "b" | "f" | "n" | "r" | "t" | "v" )
//              | "\" octal [ octal [ octal ] ]         a NextStep character
//              | "\U" up to four hex                   a UTF-16 unit
//              | "\" any other character, for itself
//   filler     = { space | line end | "//" ... line end | "/*" ... "*/" }
//
// A comment may end with the document. The document is well-formed UTF-8, of which one U+FEFF at the
// start is left out. It is at most 512 levels deep, and so read by functions that call each other.
//
// A value that cannot be read ends the array around it like one that is not there, and a key likewise
// the pairs: what follows is looked at from where reading stopped, for an unfinished quoted string from
// behind its first quote. So the array ( a, "b ) holds a, and has always done so.
// clang-format on
#include "OldStyleReader.h"

#include <utility>

#include "Array.h"
#include "Buffer.h"
#include "Data.h"
#include "Dictionary.h"
#include "NextStepLatin.h"
#include "String.h"
#include "Text.h"
#include "Unicode.h"

namespace cf {

namespace {

constexpr std::size_t kMaximumOldStyleNesting = 512;

constexpr std::string_view kLineSeparator = "\xE2\x80\xA8";
constexpr std::string_view kParagraphSeparator = "\xE2\x80\xA9";

bool isOctalDigit(char byte) {
    return byte >= '0' && byte <= '7';
}

bool isBare(char byte) {
    const char lower = static_cast<char>(byte | 0x20);
    return (lower >= 'a' && lower <= 'z') || isDigit(byte) || byte == '_' || byte == '$' ||
           byte == '/' || byte == ':' || byte == '.' || byte == '-';
}

class OldStyleReader {
  public:
    OldStyleReader(std::string_view document, bool containersAreMutable)
        : containersAreMutable_(containersAreMutable),
          begin_(document.data()),
          at_(document.data()),
          end_(document.data() + document.size()),
          indentationLeft_(mostWritten(document.size())) {}

    const Object* read(Refusal& refusal) {
        Ref<const Object> root = readDocument();
        if (!root) {
            refusal = {reason_, lastLine({begin_, static_cast<std::size_t>(at_ - begin_)})};
            return nullptr;
        }
        return root.pass();
    }

  private:
    using Value = Ref<const Object>;

    std::string_view rest() const { return {at_, static_cast<std::size_t>(end_ - at_)}; }

    // The first reason since a value was last there counts: others come of it.
    Value refuse(const char* reason) {
        if (reason_ == nullptr) {
            reason_ = reason;
        }
        return {};
    }

    // A value that is absent for such a reason must not be taken for the end of an array.
    bool isStopped() const { return reason_ == kOutOfMemory || reason_ == kTooLarge; }
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
        if (startsWith(rest(), kUtf8Mark)) {
            at_ += kUtf8Mark.size();
        }
        if (at_ == end_) {
            return refuse("no text");
        }
        if (utf16Length(rest()) == kIllFormed) {
            return refuse("text that is not well-formed UTF-8");
        }
        const char* const start = at_;
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
        at_ = start;
        return readPairs(1);
    }

    // Whether something follows it.
    bool skipFiller() {
        while (at_ < end_) {
            const char byte = *at_;
            if (byte == ' ' || (byte >= '\t' && byte <= '\r')) {
                ++at_;
            } else if (startsWith(rest(), kLineSeparator) ||
                       startsWith(rest(), kParagraphSeparator)) {
                at_ += kLineSeparator.size();
            } else if (startsWith(rest(), "//")) {
                skipLine();
            } else if (startsWith(rest(), "/*")) {
                const std::size_t end = rest().find("*/", 2);
                at_ = end == std::string_view::npos ? end_ : at_ + end + 2;
            } else {
                return true;
            }
        }
        return false;
    }

    void skipLine() {
        while (at_ < end_ && *at_ != '\n' && *at_ != '\r' && !startsWith(rest(), kLineSeparator) &&
               !startsWith(rest(), kParagraphSeparator)) {
            ++at_;
        }
    }

    bool follows(char byte) { return skipFiller() && *at_ == byte; }

    bool take(char byte) {
        if (!follows(byte)) {
            return false;
        }
        ++at_;
        return true;
    }

    // A value inside of `depth` containers, or none.
    Value readValue(std::size_t depth) {
        if (indentationLeft_ < depth) {
            return stop(kTooLarge);
        }
        indentationLeft_ -= depth;
        if (!skipFiller()) {
            return refuse("the document ends where a value should be");
        }
        if (*at_ == '(' || *at_ == '{') {
            if (depth == kMaximumOldStyleNesting) {
                return refuse(kNestedTooDeep);
            }
            return *at_ == '(' ? readArray(depth + 1) : readDictionary(depth + 1);
        }
        return *at_ == '<' ? readData() : readString();
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

    // A dictionary of the pairs up to where no key begins.
    Value readPairs(std::size_t depth) {
        Dictionary* const dictionary = makeDictionary();
        Value owner = made(dictionary);
        if (!owner) {
            return {};
        }
        while (skipFiller()) {
            Value key = readString();
            if (!key) {
                break;
            }
            Value value;
            if (take('=')) {
                value = readValue(depth);
                if (!value) {
                    return {};
                }
            } else if (follows(';')) {
                retain(key.get());
                value = Value(key.get());
            } else {
                return refuse("neither = nor ; behind a key");
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

    // A string, or none.
    Value readString() {
        const char byte = *at_;
        if (byte == '"' || byte == '\'') {
            ++at_;
            return readQuoted(byte);
        }
        const char* const start = at_;
        while (at_ < end_ && isBare(*at_)) {
            ++at_;
        }
        if (at_ == start) {
            return refuse("a character that begins nothing");
        }
        return made(makeAsciiString({start, static_cast<std::size_t>(at_ - start)}));
    }

    Value readQuoted(char quote) {
        const char* const start = at_;
        const char* piece = start;
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
            const char* const escape = at_;
            if (!readEscape()) {
                return stop(kOutOfMemory);
            }
            piece = at_;
            if (at_ == escape && at_ < end_) {
                ++at_;  // a character that stands for itself, a quote perhaps
            }
        }
        if (at_ == end_) {
            at_ = start;
            return refuse("a quoted string without its end");
        }
        if (hasEscapes && !addPiece(piece)) {
            return stop(kOutOfMemory);
        }
        const std::string_view text(start, static_cast<std::size_t>(at_ - start));
        ++at_;
        return made(hasEscapes ? makeStringFromUnits(units_.data(), units_.size())
                               : makeStringFromUtf8(text));
    }

    // The text from `piece` to the cursor.
    bool addPiece(const char* piece) {
        const std::string_view text(piece, static_cast<std::size_t>(at_ - piece));
        const std::size_t count = utf16Length(text);
        if (!units_.reserve(count)) {
            return false;
        }
        utf8ToUtf16(text, units_.end());
        units_.advance(count);
        return true;
    }

    // What stands behind a backslash, unless it stands for itself. False where there is no memory.
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
        const std::size_t letter = kLetters.find(*at_);
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
            const unsigned high = hexDigit(*at_);
            if (high == kNoDigit) {
                const std::size_t space = spaceInData();
                if (space == 0) {
                    return refuse("data with other characters than hex digits");
                }
                at_ += space;
                continue;
            }
            ++at_;
            const unsigned low = at_ < end_ ? hexDigit(*at_) : kNoDigit;
            if (low == kNoDigit) {
                return refuse("data with half a byte");
            }
            ++at_;
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

    std::size_t spaceInData() const {
        if (*at_ == ' ' || *at_ == '\t' || *at_ == '\n' || *at_ == '\r') {
            return 1;
        }
        return startsWith(rest(), kLineSeparator) || startsWith(rest(), kParagraphSeparator)
                   ? kLineSeparator.size()
                   : 0;
    }

    const bool containersAreMutable_;
    const char* const begin_;
    const char* at_;
    const char* const end_;
    const char* reason_ = nullptr;
    std::size_t indentationLeft_;
    Buffer<UniChar> units_;  // of a string with escapes
    Buffer<char> bytes_;     // of data
};

}  // namespace

const Object* readOldStyle(std::string_view document, bool containersAreMutable, Refusal& refusal) {
    return OldStyleReader(document, containersAreMutable).read(refusal);
}

}  // namespace cf
