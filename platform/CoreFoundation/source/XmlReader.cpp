// SPDX-License-Identifier: Apache-2.0

// clang-format off
// Reads XML property lists. The grammar of the accepted documents follows. The reader is laxer than XML
// in most places and stricter in some. It accepts exactly the documents that the platform's own parser
// accepts, since the reader decides whether a file counts as damaged.
//
//   document   = { space | comment | pi | doctype } element     the reader ignores the rest
//   doctype    = "<!DOCTYPE" { byte, no ">" or "[" } ">"        an inline DTD is refused
//   comment    = "<!--" ... "-->"        inside an element its first dashes may be its last ones
//   pi         = "<?" ... "?>"
//   element    = "<" name [ attributes ] ">" content "</" name { space } ">"
//              | "<" name [ attributes ] "/>"      not for plist, data, date, integer, real
//   attributes = space { byte, no ">" }            the reader ignores them
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
// Names are lower case. A string must be well-formed UTF-8; one U+FEFF at its start is left out. A
// dictionary whose only entry is "CF$UID" with a number is an archive's reference.
// clang-format on
#include "XmlReader.h"

#include <algorithm>
#include <iterator>

#include "Limits.h"
#include "Number.h"
#include "String.h"
#include "Tree.h"
#include "Uid.h"
#include "Unicode.h"
#include "XmlScanner.h"
#include "XmlValues.h"

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

// The elements of services come first, because they are the most frequent.
constexpr ElementName kElements[] = {
    {"key", Element::Key},         {"string", Element::String}, {"integer", Element::Integer},
    {"dict", Element::Dictionary}, {"array", Element::Array},   {"true", Element::True},
    {"false", Element::False},     {"real", Element::Real},     {"date", Element::Date},
    {"data", Element::Data},       {"plist", Element::Plist},
};

// Returns the element of the name, or null if there is none.
const ElementName* elementOf(std::string_view name) {
    const ElementName* const found =
        std::find_if(std::begin(kElements), std::end(kElements),
                     [name](const ElementName& element) { return element.name == name; });
    return found == std::end(kElements) ? nullptr : found;
}

class XmlReader {
  public:
    XmlReader(std::string_view document, bool containersAreMutable)
        : scanner_(document), tree_(containersAreMutable, Present::Replace) {}

    const Object* read(Refusal& refusal) {
        const Object* const root =
            tree_.finish(scanner_.skipProlog() ? readElements() : nullptr, scanner_.reason());
        if (root == nullptr) {
            refusal = scanner_.refusal();
        }
        return root;
    }

  private:
    using Next = XmlScanner::Next;

    std::nullptr_t refuse(const char* reason) { return scanner_.refuse(reason); }

    const Object* made(const Object* object) {
        return object == nullptr ? refuse(kOutOfMemory) : object;
    }

    // Reads the first element, with the elements inside it. The cursor is behind the "<" of its
    // start tag.
    const Object* readElements() {
        for (;;) {
            XmlScanner::Tag tag = {};
            if (!scanner_.readTag(tag)) {
                return nullptr;
            }
            const ElementName* const name = elementOf(tag.name);
            if (name == nullptr) {
                return refuse("an element of no property list");
            }
            const Element element = name->element;
            const Object* value = nullptr;
            if (!tag.isEmpty && (element == Element::Plist || element == Element::Array ||
                                 element == Element::Dictionary)) {
                if (!open(element)) {
                    return nullptr;
                }
            } else {
                value = tag.isEmpty ? readEmpty(element) : readLeaf(*name);
                if (value == nullptr) {
                    return nullptr;
                }
            }
            // Places the value, and closes each container whose end tag follows.
            for (bool isKey = element == Element::Key;; isKey = false) {
                if (value != nullptr) {
                    if (tree_.depth() == 0) {
                        return value;
                    }
                    if (!place(value, isKey)) {
                        return nullptr;
                    }
                }
                const Next next = scanner_.next();
                if (next == Next::Start) {
                    break;
                }
                value = next == Next::Nothing ? nullptr : close(next == Next::StrayLess);
                if (value == nullptr) {
                    return nullptr;
                }
            }
        }
    }

    // Opens a container. A plist element is built as an array, which must have one value when it is
    // closed. The plist element around the whole document does not count for the limit of depth.
    bool open(Element element) {
        if (element == Element::Plist && tree_.depth() == 0) {
            tree_.exemptOutermost();
        }
        const bool wasOpened = element == Element::Dictionary
                                   ? tree_.openDictionary(scanner_.reason())
                                   : tree_.openArray(scanner_.reason());
        if (wasOpened) {
            isPlist_[tree_.depth() - 1] = element == Element::Plist;
            hasPlist_ = hasPlist_ || element == Element::Plist;
        }
        return wasOpened;
    }

    bool isInPlist() const { return isPlist_[tree_.depth() - 1]; }

    // Puts a key or a value into the container around it.
    bool place(const Object* value, bool isKey) {
        if (tree_.isInDictionary() && !tree_.hasKey()) {
            if (!isKey) {
                release(value);
                refuse("a value without a key");
                return false;
            }
            return tree_.setKey(value, scanner_.reason());
        }
        return tree_.add(value, scanner_.reason());
    }

    // Closes the innermost container at its end tag. Ignores a stray "<" in front of the end tag of
    // a dictionary if the document has no plist element.
    const Object* close(bool isBehindStrayLess) {
        if (isBehindStrayLess && (hasPlist_ || !tree_.isInDictionary())) {
            return refuse("a tag inside a tag");
        }
        if (tree_.isInDictionary()) {
            if (tree_.hasKey()) {
                return refuse("a key without a value");
            }
            if (!scanner_.readEndTag("dict")) {
                return nullptr;
            }
            return asUidIfItIsOne(static_cast<Dictionary*>(tree_.close()));
        }
        const bool isPlist = isInPlist();
        if (!scanner_.readEndTag(isPlist ? std::string_view("plist") : std::string_view("array"))) {
            return nullptr;
        }
        Ref<const Object> array(tree_.close());
        if (!isPlist) {
            return array.pass();
        }
        if (asArray(array.get())->count != 1) {
            return refuse("a plist element of none or several values");
        }
        const Object* const content = asArray(array.get())->values[0];
        retain(content);
        return content;
    }

    const Object* asUidIfItIsOne(const Dictionary* dictionary) {
        Ref<const Dictionary> owned(dictionary);
        if (dictionary->count != 1 || !isAscii(*asString(dictionary->entries[0].key), "CF$UID")) {
            return owned.pass();
        }
        const Object* const value = dictionary->entries[0].value;
        if (typeOf(value) != Type::Number) {
            return owned.pass();
        }
        return made(create<Uid>(kCFAllocatorDefault, 0, uidOf(numberOf(value))));
    }

    // Returns the low 32 bits of a whole number. Returns the whole part of a real number if it fits
    // in 32 bits with a sign, and the least such number otherwise.
    static std::uint32_t uidOf(const Number& number) {
        constexpr double kTwoTo31 = 2147483648.0;
        if (number.kind != Number::Kind::Real) {
            return static_cast<std::uint32_t>(number.whole);
        }
        const bool fits = number.real > -kTwoTo31 - 1 && number.real < kTwoTo31;
        return static_cast<std::uint32_t>(fits ? static_cast<std::int32_t>(number.real)
                                               : INT32_MIN);
    }

    // Reads an element that holds no other elements, from behind its start tag to behind its end
    // tag.
    const Object* readLeaf(const ElementName& name) {
        Ref<const Object> value(readContent(name.element));
        if (!value || !scanner_.readEndTag(name.name)) {
            return nullptr;
        }
        return value.pass();
    }

    const Object* readEmpty(Element element) {
        switch (element) {
            case Element::Array:
                return openAndClose(tree_.openArray(scanner_.reason()));
            case Element::Dictionary:
                return openAndClose(tree_.openDictionary(scanner_.reason()));
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
                return readInteger(scanner_.readBytes(), scanner_.reason());
            case Element::Real:
                return readRealText();
            case Element::Date:
                return readDate(scanner_.readBytes(), scanner_.reason());
            default:
                return readData(scanner_.readBytes(), scanner_.reason());
        }
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
        return scanner_.readText(text) ? makeString(text) : nullptr;
    }

    // Reads a key. The dictionaries of a list have the same few keys, so equal keys are mostly one
    // string.
    const Object* readKey() {
        std::string_view text;
        if (!scanner_.readText(text)) {
            return nullptr;
        }
        Ref<const String>& recent = recentKeys_[text.size() % kRecentKeys];
        if (!recent || !isAscii(*recent, text)) {
            recent.reset(makeString(text));
        }
        if (recent) {
            retain(recent.get());
        }
        return recent.get();
    }

    const Object* readRealText() {
        std::string_view text;
        if (!scanner_.readText(text)) {
            return nullptr;
        }
        const Ref<const String> string(makeString(text));
        return string ? readReal(*string, scanner_.reason()) : nullptr;
    }

    static constexpr std::size_t kRecentKeys = 8;

    XmlScanner scanner_;
    Tree tree_;
    Ref<const String> recentKeys_[kRecentKeys];  // By the length of the text.
    bool isPlist_[kMaximumNesting + 1];          // States which open containers are plist elements.
    bool hasPlist_ = false;                      // States whether a plist element has been opened.
};

}  // namespace

const Object* readXml(std::string_view document, bool containersAreMutable, Refusal& refusal) {
    return XmlReader(document, containersAreMutable).read(refusal);
}

}  // namespace cf
