// clang-format off
// What is accepted. It is not XML: laxer in most places, stricter in some, and to the letter what the
// platform's own parser accepts, since it decides whether a file counts as damaged.
//
//   document   = { space | comment | pi | doctype } element     whatever follows is not looked at
//   doctype    = "<!DOCTYPE" { byte, no ">" or "[" } ">"        an inline DTD is refused
//   comment    = "<!--" ... "-->"        inside an element its first dashes may be its last ones
//   pi         = "<?" ... "?>"
//   element    = "<" name [ attributes ] ">" content "</" name { space } ">"
//              | "<" name [ attributes ] "/>"      not for plist, data, date, integer, real
//   attributes = space { byte, no ">" }            never looked at
//   content of
//     plist    = filler element filler             may be left out around the element, or stand twice
//     array    = filler { element filler }
//     dict     = filler { key filler element filler } [ "<" ]   of equal keys the last value counts;
//                                                  the "<" only in a document without plist
//     string, key = { text | entity | cdata }
//     true, false = nothing
//     integer  = { ispace } [ sign { ispace } ] ( "0x" hex { hex } | digit { digit } )
//                                                  from -2^63 to 2^64-1
//     real     = text as in a string: [ sign ] ( "inf" | "infinity" ) | "nan", in any case,
//                or spaces and a decimal number of the C language
//     date     = [ "-" ] { digit } "-" dd "-" dd "T" dd ":" dd ":" dd "Z"
//                                                  a month after 15 counts as no days
//     data     = { byte, no "<" and none over 127 }     base64; other characters are left out
//   filler     = { space | comment | pi }
//   entity     = "&" ( "lt" | "gt" | "amp" | "apos" | "quot" ) ";"
//              | "&#" { digit } ";" | "&#x" { hex } ";"      at most 8 digits; none stand for 0
//   cdata      = "<![CDATA[" ... "]]>"
//   space      = " " | tab | line feed | carriage return
//   ispace     = any byte to " ", or from 127 to 160, or a part of U+2000 to U+200B, U+205F, U+3000
//
// A document in UTF-16 is read up to its first lone surrogate.
//
// Names are lower case. A string has to be well-formed UTF-8; one U+FEFF at its start is left out. A
// dictionary whose only entry is "CF$UID" with a number is an archive's reference.
// clang-format on
#include "XmlReader.h"

#include <algorithm>
#include <cstring>

#ifdef __APPLE__
#include <xlocale.h>
#else
#include <locale.h>
#endif

#include "Buffer.h"
#include "Calendar.h"
#include "Data.h"
#include "Date.h"
#include "Number.h"
#include "String.h"
#include "Text.h"
#include "Tree.h"
#include "Uid.h"
#include "Unicode.h"

namespace cf {

namespace {

enum class Element {
    Plist,
    Array,
    Dictionary,
    Key,
    String,
    Data,
    Date,
    True,
    False,
    Real,
    Integer
};

struct ElementName {
    std::string_view name;
    Element element;
};

constexpr ElementName kKey = {"key", Element::Key};
constexpr ElementName kString = {"string", Element::String};
constexpr ElementName kInteger = {"integer", Element::Integer};
constexpr ElementName kDictionary = {"dict", Element::Dictionary};
constexpr ElementName kArray = {"array", Element::Array};
constexpr ElementName kTrue = {"true", Element::True};
constexpr ElementName kFalse = {"false", Element::False};
constexpr ElementName kReal = {"real", Element::Real};
constexpr ElementName kDate = {"date", Element::Date};
constexpr ElementName kData = {"data", Element::Data};
constexpr ElementName kPlist = {"plist", Element::Plist};

// Null where there is none of that name. The lengths leave at most five to be compared.
const ElementName* elementOf(std::string_view name) {
    const ElementName* found = nullptr;
    const auto is = [name, &found](const ElementName& element) {
        if (name != element.name) {
            return false;
        }
        found = &element;
        return true;
    };
    const auto isOneOf = [&](const auto&... elements) {
        return (is(elements) || ...) ? found : nullptr;
    };
    switch (name.size()) {
        case kKey.name.size():
            return isOneOf(kKey);
        case kDictionary.name.size():
            return isOneOf(kDictionary, kTrue, kReal, kDate, kData);
        case kArray.name.size():
            return isOneOf(kArray, kFalse, kPlist);
        case kString.name.size():
            return isOneOf(kString);
        case kInteger.name.size():
            return isOneOf(kInteger);
        default:
            return nullptr;
    }
}

struct Tag {
    const ElementName* element;
    bool isEmpty;
};

bool isSpace(char byte) {
    return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
}

// Where the text ends: at the next < or &, or at the end.
const char* endOfText(const char* at, const char* end) {
    constexpr std::uint64_t kOnes = 0x0101010101010101U;
    constexpr std::uint64_t kHighBits = 0x8080808080808080U;
    // Not zero where one of eight bytes is the given one.
    const auto find = [](std::uint64_t eight, char byte) {
        const std::uint64_t different = eight ^ kOnes * static_cast<unsigned char>(byte);
        return (different - kOnes) & ~different & kHighBits;
    };
    for (; static_cast<std::size_t>(end - at) >= sizeof(std::uint64_t);
         at += sizeof(std::uint64_t)) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, at, sizeof eight);
        if ((find(eight, '<') | find(eight, '&')) != 0) {
            break;
        }
    }
    while (at < end && *at != '<' && *at != '&') {
        ++at;
    }
    return at;
}

// The keys of a document are few and come again and again: each is made once.
class KeyCache {
  public:
    KeyCache() = default;
    KeyCache(const KeyCache&) = delete;
    KeyCache& operator=(const KeyCache&) = delete;
    ~KeyCache() {
        for (const String* const key : keys_) {
            if (key != nullptr) {
                release(key);
            }
        }
    }

    // A reference for the caller to the string of these bytes, where it is kept.
    const String* find(std::string_view bytes) const {
        const String* const key = keys_[slot(bytes)];
        if (key == nullptr || !isAscii(*key, bytes)) {
            return nullptr;
        }
        retain(key);
        return key;
    }

    void keep(std::string_view bytes, const String* key) {
        const String*& kept = keys_[slot(bytes)];
        if (kept != nullptr) {
            release(kept);
        }
        retain(key);
        kept = key;
    }

  private:
    static constexpr std::size_t kSlots = 32;

    static std::size_t slot(std::string_view bytes) {
        if (bytes.empty()) {
            return 0;
        }
        const auto first = static_cast<unsigned char>(bytes.front());
        const auto last = static_cast<unsigned char>(bytes.back());
        return (bytes.size() * 31 + std::size_t{first} * 7 + last) % kSlots;
    }

    const String* keys_[kSlots] = {};
};

class XmlReader {
  public:
    XmlReader(std::string_view document, bool containersAreMutable)
        : begin_(document.data()),
          at_(document.data()),
          end_(document.data() + document.size()),
          tree_(containersAreMutable, Present::Replace) {}

    const Object* read(Refusal& refusal) {
        const Object* const root = tree_.finish(skipProlog() ? readElements() : nullptr, &reason_);
        if (root == nullptr) {
            refusal = {reason_, lastLine(begin_, std::min(at_, end_))};
        }
        return root;
    }

  private:
    enum class Next { Start, End, Nothing };

    std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
    std::string_view rest() const { return {at_, left()}; }

    std::nullptr_t refuse(const char* reason) {
        reason_ = reason;
        return nullptr;
    }

    const Object* made(const Object* object) {
        return object == nullptr ? refuse(kOutOfMemory) : object;
    }

    void skipSpace() {
        while (at_ < end_ && isSpace(*at_)) {
            ++at_;
        }
    }

    // Goes behind the next `mark`.
    bool skipTo(std::string_view mark, const char* reason) {
        const std::size_t found = rest().find(mark);
        if (found == std::string_view::npos) {
            refuse(reason);
            return false;
        }
        at_ += found + mark.size();
        return true;
    }

    bool skipComment() { return skipTo("-->", "a comment without its end"); }
    bool skipInstruction() { return skipTo("?>", "a processing instruction without its end"); }

    bool skipDoctype() {
        constexpr std::string_view kDoctype = "DOCTYPE";
        if (!startsWith(rest(), kDoctype)) {
            refuse("neither a comment nor a document type");
            return false;
        }
        at_ += kDoctype.size();
        while (at_ < end_ && *at_ != '>') {
            if (*at_ == '[') {
                refuse("a document type with definitions of its own");
                return false;
            }
            ++at_;
        }
        if (at_ == end_) {
            refuse("a document type without its end");
            return false;
        }
        ++at_;
        return true;
    }

    // Up to behind the "<" of the first element.
    bool skipProlog() {
        for (;;) {
            skipSpace();
            if (left() < 2) {
                refuse("no element");
                return false;
            }
            if (*at_ != '<') {
                refuse("text in front of the first element");
                return false;
            }
            ++at_;
            if (*at_ == '?') {
                ++at_;
                if (!skipInstruction()) {
                    return false;
                }
            } else if (*at_ == '!') {
                ++at_;
                if (startsWith(rest(), "--")) {
                    at_ += 2;
                    if (!skipComment()) {
                        return false;
                    }
                } else if (!skipDoctype()) {
                    return false;
                }
            } else {
                return true;
            }
        }
    }

    // What comes next inside a container; the cursor is then behind the "<" of a start tag, or on
    // that of an end tag.
    Next next() {
        for (;;) {
            skipSpace();
            if (left() < 2) {
                refuse("the document ends inside an element");
                return Next::Nothing;
            }
            if (*at_ != '<') {
                refuse("text where an element should be");
                return Next::Nothing;
            }
            switch (at_[1]) {
                case '/':
                    return Next::End;
                case '<':
                    ++at_;
                    return passesOverStrayLess() ? Next::End : Next::Start;
                case '?':
                    // Its first question mark may be its last one.
                    ++at_;
                    if (!skipInstruction()) {
                        return Next::Nothing;
                    }
                    break;
                case '!':
                    if (!startsWith(rest(), "<!--")) {
                        refuse("neither a comment nor an element");
                        return Next::Nothing;
                    }
                    at_ += 3;
                    if (!skipComment()) {
                        return Next::Nothing;
                    }
                    break;
                default:
                    ++at_;
                    return Next::Start;
            }
        }
    }

    // Whether the cursor, which is behind a "<", is at the end tag of a dictionary in a document
    // without a plist element. There the "<" is passed over.
    bool passesOverStrayLess() const {
        return !hasPlist_ && tree_.isInDictionary() && startsWith(rest(), "</dict");
    }

    // From behind the "<" of a start tag to behind its ">".
    bool readTag(Tag& tag) {
        const char* const start = at_;
        const char* nameEnd = nullptr;
        while (at_ < end_ && *at_ != '>') {
            if (nameEnd == nullptr && isSpace(*at_)) {
                nameEnd = at_;
            }
            ++at_;
        }
        if (at_ == end_) {
            refuse("a tag without its end");
            return false;
        }
        tag.isEmpty = at_ != start && at_[-1] == '/';
        if (nameEnd == nullptr) {
            nameEnd = tag.isEmpty ? at_ - 1 : at_;
        }
        ++at_;
        const std::string_view name(start, static_cast<std::size_t>(nameEnd - start));
        tag.element = elementOf(name);
        if (tag.element != nullptr) {
            return true;
        }
        refuse("an element of no property list");
        return false;
    }

    bool readEndTag(std::string_view name) {
        if (left() < name.size() + 3) {
            refuse("the document ends inside an element");
            return false;
        }
        if (at_[0] != '<' || at_[1] != '/' || std::memcmp(at_ + 2, name.data(), name.size()) != 0) {
            refuse("something other than the end of the element");
            return false;
        }
        at_ += 2 + name.size();
        skipSpace();
        if (at_ == end_ || *at_ != '>') {
            refuse("an end tag without its end");
            return false;
        }
        ++at_;
        return true;
    }

    // The elements from the first one on, whose start tag begins at the cursor, to its end.
    const Object* readElements() {
        for (;;) {
            Tag tag = {};
            if (!readTag(tag)) {
                return nullptr;
            }
            const Element element = tag.element->element;
            const Object* value = nullptr;
            if (!tag.isEmpty && (element == Element::Plist || element == Element::Array ||
                                 element == Element::Dictionary)) {
                if (!open(element)) {
                    return nullptr;
                }
            } else {
                value = readLeaf(tag);
                if (value == nullptr) {
                    return nullptr;
                }
            }
            // A value ends containers around it as long as their end tags follow.
            for (bool isKey = element == Element::Key;; isKey = false) {
                if (value != nullptr) {
                    if (tree_.depth() == 0) {
                        return value;
                    }
                    if (!place(value, isKey)) {
                        return nullptr;
                    }
                }
                const Next what = next();
                if (what == Next::Start) {
                    break;
                }
                value = what == Next::End ? close() : nullptr;
                if (value == nullptr) {
                    return nullptr;
                }
            }
        }
    }

    // A plist element is built as an array, which has to have one value when it is closed. The
    // usual one around everything is not part of the tree.
    bool open(Element element) {
        if (element == Element::Plist && tree_.depth() == 0) {
            tree_.exemptOutermost();
        }
        const bool wasOpened = element == Element::Dictionary ? tree_.openDictionary(&reason_)
                                                              : tree_.openArray(&reason_);
        if (wasOpened) {
            isPlist_[tree_.depth() - 1] = element == Element::Plist;
            hasPlist_ = hasPlist_ || element == Element::Plist;
        }
        return wasOpened;
    }

    bool isInPlist() const { return isPlist_[tree_.depth() - 1]; }

    // Puts a value into the container around it.
    bool place(const Object* value, bool isKey) {
        if (tree_.isInDictionary() && !tree_.hasKey()) {
            if (!isKey) {
                release(value);
                refuse("a value without a key");
                return false;
            }
            return tree_.setKey(value, &reason_);
        }
        return tree_.add(value, &reason_);
    }

    const Object* close() {
        if (tree_.isInDictionary()) {
            if (tree_.hasKey()) {
                return refuse("a key without a value");
            }
            if (!readEndTag("dict")) {
                return nullptr;
            }
            return asUidIfItIsOne(static_cast<Dictionary*>(tree_.close()));
        }
        const bool isPlist = isInPlist();
        if (!readEndTag(isPlist ? std::string_view("plist") : std::string_view("array"))) {
            return nullptr;
        }
        Ref<const Object> array(tree_.close());
        if (!isPlist) {
            return array.pass();
        }
        if (asArray(array.get())->count != 1) {
            return refuse("a plist element of none or several values");
        }
        const Object* const content = asArray(array.get())->objectAt(0);
        retain(content);
        return content;
    }

    const Object* asUidIfItIsOne(const Dictionary* dictionary) {
        Ref<const Dictionary> owned(dictionary);
        if (dictionary->count != 1 ||
            !isAscii(*asString(asObject(dictionary->entries[0].key)), "CF$UID")) {
            return owned.pass();
        }
        const Object* const value = asObject(dictionary->entries[0].value);
        if (typeOf(value) != Type::Number) {
            return owned.pass();
        }
        return made(create<Uid>(kCFAllocatorDefault, 0, uidOf(numberOf(value))));
    }

    // The low 32 bits of a whole number. Of a real one what fits, else what the processor makes of
    // that.
    static std::uint32_t uidOf(const Number& number) {
        constexpr double kTwoTo31 = 2147483648.0;
        if (number.kind != Number::Kind::Real) {
            return static_cast<std::uint32_t>(number.whole);
        }
        const bool fits = number.real > -kTwoTo31 - 1 && number.real < kTwoTo31;
        return static_cast<std::uint32_t>(fits ? static_cast<std::int32_t>(number.real)
                                               : INT32_MIN);
    }

    // An element that holds no others, from behind its start tag to behind its end tag.
    const Object* readLeaf(const Tag& tag) {
        if (tag.isEmpty) {
            return readEmpty(tag.element->element);
        }
        Ref<const Object> value(readContent(tag.element->element));
        if (!value || !readEndTag(tag.element->name)) {
            return nullptr;
        }
        return value.pass();
    }

    const Object* readEmpty(Element element) {
        switch (element) {
            case Element::Array:
                return openAndClose(tree_.openArray(&reason_));
            case Element::Dictionary:
                return openAndClose(tree_.openDictionary(&reason_));
            case Element::Key:
            case Element::String:
                return made(makeAsciiString({}));
            case Element::True:
                return asObject(kCFBooleanTrue);
            case Element::False:
                return asObject(kCFBooleanFalse);
            default:
                return refuse("an element without its content");
        }
    }

    const Object* openAndClose(bool wasOpened) { return wasOpened ? tree_.close() : nullptr; }

    const Object* readContent(Element element) {
        switch (element) {
            case Element::Key:
                return readKey();
            case Element::String:
                return readString();
            case Element::True:
                return asObject(kCFBooleanTrue);
            case Element::False:
                return asObject(kCFBooleanFalse);
            case Element::Integer:
                return readInteger();
            case Element::Real:
                return readReal();
            case Element::Date:
                return readDate();
            default:
                return readData();
        }
    }

    // The text up to the end tag, which stays in the document or, where it is not simply there, is
    // put together in pieces_.
    bool readText(std::string_view& text) {
        pieces_.shrinkTo(0);
        const char* start = at_;
        bool isPieced = false;
        for (;;) {
            at_ = endOfText(at_, end_);
            const bool isEntity = at_ < end_ && *at_ == '&';
            const bool isCdata = left() > 1 && at_[0] == '<' && at_[1] == '!';
            const std::string_view piece(start, static_cast<std::size_t>(at_ - start));
            if (!isEntity && !isCdata && !isPieced) {
                text = piece;
                return true;
            }
            isPieced = true;
            if (!pieces_.append(piece.data(), piece.size())) {
                refuse(kOutOfMemory);
                return false;
            }
            if (!isEntity && !isCdata) {
                text = {pieces_.data(), pieces_.size()};
                return true;
            }
            if (isEntity ? !readEntity() : !readCdata()) {
                return false;
            }
            start = at_;
        }
    }

    bool readCdata() {
        constexpr std::string_view kStart = "<![CDATA[";
        constexpr std::string_view kEnd = "]]>";
        if (!startsWith(rest(), kStart)) {
            refuse("markup inside a string");
            return false;
        }
        at_ += kStart.size();
        const char* const start = at_;
        if (!skipTo(kEnd, "a CDATA section without its end")) {
            return false;
        }
        const auto size = static_cast<std::size_t>(at_ - start) - kEnd.size();
        if (!pieces_.append(start, size)) {
            refuse(kOutOfMemory);
            return false;
        }
        return true;
    }

    bool readEntity() {
        struct Entity {
            std::string_view name;
            char character;
        };
        constexpr Entity kEntities[] = {
            {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&apos;", '\''}, {"&quot;", '"'}};

        if (startsWith(rest(), "&#")) {
            return readNumericEntity();
        }
        for (const Entity& entity : kEntities) {
            if (startsWith(rest(), entity.name)) {
                at_ += entity.name.size();
                if (!pieces_.append(entity.character)) {
                    refuse(kOutOfMemory);
                    return false;
                }
                return true;
            }
        }
        refuse("an unknown entity");
        return false;
    }

    bool readNumericEntity() {
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
                refuse("a character reference that is no number");
                return false;
            }
            codePoint = codePoint * base + digit;
        }
        if (at_ == end_ || codePoint > kLastCodePoint || isSurrogate(codePoint)) {
            refuse("a reference to no character");
            return false;
        }
        ++at_;
        char bytes[4] = {};
        const char* const end = writeUtf8(codePoint, bytes);
        if (!pieces_.append(bytes, static_cast<std::size_t>(end - bytes))) {
            refuse(kOutOfMemory);
            return false;
        }
        return true;
    }

    const String* makeString(std::string_view text) {
        const String* const string = makeStringFromMarkedUtf8(text);
        if (string == nullptr) {
            refuse(utf16Length(text) == kIllFormed ? "text that is not well-formed UTF-8"
                                                   : kOutOfMemory);
        }
        return string;
    }

    const Object* readString() {
        std::string_view text;
        return readText(text) ? makeString(text) : nullptr;
    }

    const Object* readKey() {
        std::string_view text;
        if (!readText(text)) {
            return nullptr;
        }
        if (const String* const kept = keys_.find(text); kept != nullptr) {
            return kept;
        }
        const String* const key = makeString(text);
        if (key != nullptr) {
            keys_.keep(text, key);
        }
        return key;
    }

    // Byte by byte, as it has always been: what begins like one of the wide spaces leads to bytes
    // that count as spaces themselves.
    void skipIntegerSpace() {
        while (at_ < end_) {
            const auto byte = static_cast<unsigned char>(*at_);
            const bool isSpaceByte = byte <= ' ' || (byte > 0x7E && byte < 0xA1);
            const bool startsWideSpace = (left() >= 3 && startsWith(rest(), "\xE2\x80") &&
                                          static_cast<unsigned char>(at_[2]) >= 0x80 &&
                                          static_cast<unsigned char>(at_[2]) <= 0x8B) ||
                                         startsWith(rest(), "\xE2\x81\x9F") ||
                                         startsWith(rest(), "\xE3\x80\x80");
            if (!isSpaceByte && !startsWideSpace) {
                return;
            }
            ++at_;
        }
    }

    const Object* readInteger() {
        skipIntegerSpace();
        bool isNegative = false;
        if (at_ < end_ && (*at_ == '-' || *at_ == '+')) {
            isNegative = *at_ == '-';
            ++at_;
            skipIntegerSpace();
        }
        unsigned base = 10;
        if (startsWith(rest(), "0x") || startsWith(rest(), "0X")) {
            base = 16;
            at_ += 2;
        }
        const char* const digits = at_;
        std::uint64_t magnitude = 0;
        for (; at_ < end_ && *at_ != '<'; ++at_) {
            const unsigned digit = hexDigit(*at_);
            if (digit >= base) {
                return refuse("an integer with other characters than digits");
            }
            if (magnitude > (UINT64_MAX - digit) / base) {
                return refuse("an integer out of range");
            }
            magnitude = magnitude * base + digit;
        }
        if (at_ == digits) {
            return refuse("an integer without digits");
        }
        constexpr std::uint64_t kTwoTo63 = std::uint64_t{1} << 63;
        if (!isNegative) {
            return made(makeNumber(magnitude));
        }
        if (magnitude > kTwoTo63) {
            return refuse("an integer out of range");
        }
        return made(makeNumber(static_cast<std::int64_t>(0 - magnitude)));
    }

    const Object* readReal() {
        std::string_view text;
        if (!readText(text)) {
            return nullptr;
        }
        Ref<const String> string(makeString(text));
        double value = 0;
        if (!string) {
            return nullptr;
        }
        if (!parseReal(*string, value)) {
            return reason_ == nullptr ? refuse("a real that is no number") : nullptr;
        }
        return made(makeNumber(value));
    }

    static bool isNamedReal(const String& string, double& value) {
        struct Name {
            std::string_view name;
            double value;
        };
        constexpr double kInfinity = __builtin_inf();
        constexpr Name kNames[] = {
            {"nan", __builtin_nan("")}, {"inf", kInfinity},      {"+inf", kInfinity},
            {"-inf", -kInfinity},       {"infinity", kInfinity}, {"+infinity", kInfinity},
            {"-infinity", -kInfinity},
        };
        for (const Name& name : kNames) {
            bool isEqual = name.name.size() == string.length;
            for (std::size_t at = 0; isEqual && at < string.length; ++at) {
                const UniChar unit = string.at(at);
                isEqual = (unit >= 'A' && unit <= 'Z' ? unit + 0x20 : unit) == name.name[at];
            }
            if (isEqual) {
                value = name.value;
                return true;
            }
        }
        return false;
    }

    static bool isRealSpace(UniChar unit) {
        return unit <= ' ' || (unit > 0x7E && unit < 0xA1) || (unit >= 0x2000 && unit <= 0x200B) ||
               unit == 0x3000;
    }

    bool parseReal(const String& string, double& value) {
        if (isNamedReal(string, value)) {
            return true;
        }
        std::size_t at = 0;
        while (at < string.length && isRealSpace(string.at(at))) {
            ++at;
        }
        pieces_.shrinkTo(0);
        for (; at < string.length; ++at) {
            const UniChar unit = string.at(at);
            // A NUL is let through, and no number then: strtod() ends in front of it.
            if (unit > 0x7E || std::strchr("0123456789.eE+-", unit) == nullptr) {
                return false;
            }
            if (!pieces_.append(static_cast<char>(unit))) {
                refuse(kOutOfMemory);
                return false;
            }
        }
        if (!pieces_.append('\0')) {
            refuse(kOutOfMemory);
            return false;
        }
        // The decimal point must not be that of the host's language.
        static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
        char* end = nullptr;
        value = strtod_l(pieces_.data(), &end, plain);
        return pieces_.size() > 1 && end == pieces_.data() + pieces_.size() - 1;
    }

    // Two digits, which must not be the last bytes of the document.
    bool readTwoDigits(int& number) {
        if (left() < 3) {
            return false;
        }
        const char tens = at_[0];
        const char ones = at_[1];
        at_ += 2;
        number = (tens - '0') * 10 + (ones - '0');
        return isDigit(tens) && isDigit(ones);
    }

    bool readByte(char byte) {
        if (at_ == end_ || *at_ != byte) {
            return false;
        }
        ++at_;
        return true;
    }

    const Object* readDate() {
        const bool isNegative = readByte('-');
        // Years of any length have always been taken, and kept to 32 bits.
        std::uint32_t digits = 0;
        for (; at_ < end_ && isDigit(*at_); ++at_) {
            digits = digits * 10 + static_cast<std::uint32_t>(*at_ - '0');
        }
        int month = 0;
        int day = 0;
        int hour = 0;
        int minute = 0;
        int second = 0;
        if (!readByte('-') || !readTwoDigits(month) || !readByte('-') || !readTwoDigits(day) ||
            !readByte('T') || !readTwoDigits(hour) || !readByte(':') || !readTwoDigits(minute) ||
            !readByte(':') || !readTwoDigits(second) || !readByte('Z')) {
            return refuse("a date of another form than 2001-01-01T00:00:00Z");
        }
        const std::int64_t year = static_cast<std::int32_t>(isNegative ? 0 - digits : digits);
        return made(create<Date>(kCFAllocatorDefault, 0,
                                 absoluteTime(year, month, day, hour, minute, second)));
    }

    // Base64 with a padding character of the value 0: what it leaves over is cut off the group of
    // four in which it stands last.
    const Object* readData() {
        pieces_.shrinkTo(0);
        const char* const end =
            static_cast<const char*>(std::memchr(at_, '<', left()));  // that of the end tag
        const std::size_t size = end == nullptr ? left() : static_cast<std::size_t>(end - at_);
        if (!pieces_.reserve(size / 4 * 3)) {
            return refuse(kOutOfMemory);
        }
        unsigned group = 0;
        int characters = 0;
        int padding = 0;
        for (; at_ < end_ && *at_ != '<'; ++at_) {
            const auto byte = static_cast<unsigned char>(*at_);
            if (byte > 0x7F) {
                return refuse("data with other characters than ASCII");
            }
            if (byte == '=') {
                ++padding;
            } else if (byte != ' ' && (byte < '\t' || byte > '\r')) {
                padding = 0;
            }
            const int value = base64Value(*at_);
            if (value < 0) {
                continue;
            }
            group = group << 6 | static_cast<unsigned>(value);
            if (++characters % 4 == 0) {
                const char bytes[] = {static_cast<char>(group >> 16 & 0xFF),
                                      static_cast<char>(group >> 8 & 0xFF),
                                      static_cast<char>(group & 0xFF)};
                pieces_.append(bytes, padding == 0 ? 3 : padding == 1 ? 2 : 1);
            }
        }
        return made(makeData({pieces_.data(), pieces_.size()}));
    }

    static int base64Value(char byte) {
        if (byte >= 'A' && byte <= 'Z') {
            return byte - 'A';
        }
        if (byte >= 'a' && byte <= 'z') {
            return byte - 'a' + 26;
        }
        if (isDigit(byte)) {
            return byte - '0' + 52;
        }
        return byte == '+' ? 62 : byte == '/' ? 63 : byte == '=' ? 0 : -1;
    }

    const char* const begin_;
    const char* at_;
    const char* const end_;
    const char* reason_ = nullptr;
    KeyCache keys_;
    Buffer<char> pieces_;  // of a text that is put together
    Tree tree_;
    bool isPlist_[kMaximumNesting + 1];  // of the open containers
    bool hasPlist_ = false;              // so far
};

}  // namespace

const Object* readXml(std::string_view document, bool containersAreMutable, Refusal& refusal) {
    return XmlReader(document, containersAreMutable).read(refusal);
}

}  // namespace cf
