// SPDX-License-Identifier: Apache-2.0

// Writes a tree as XML. Each element is on a line of its own, indented by a tab for each container
// around it. The elements of a dictionary are in the order of their keys. Only < > & are escaped.
// The same tree always yields the same bytes.
#include "XmlWriter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <string_view>

#include "Array.h"
#include "Calendar.h"
#include "Data.h"
#include "Date.h"
#include "Dictionary.h"
#include "Limits.h"
#include "Number.h"
#include "String.h"
#include "Uid.h"
#include "Unicode.h"
#include "Validity.h"

namespace cf {

namespace {

constexpr std::string_view kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kFooter = "</plist>\n";

constexpr std::size_t kLongestEscape = 5;  // &amp;

std::string_view escapeOf(char character) {
    switch (character) {
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '&':
            return "&amp;";
        default:
            return {};
    }
}

class XmlWriter {
  public:
    // States whether the text is kept or only measured.
    enum class Purpose { Write, Measure };

    XmlWriter(Buffer<char>& document, Purpose purpose) : out_(document), purpose_(purpose) {}

    bool write(const Object* root) {
        if (!put(kHeader) || !writeValue(root)) {
            return false;
        }
        while (depth_ != 0) {
            if (!checkSize() || !writeNextOfContainer()) {
                return false;
            }
        }
        return put(kFooter) && checkSize();
    }

    // Returns whether the document is too large.
    bool isTooLarge() const { return measured_ + out_.size() > kMostWritten; }

  private:
    struct Level {
        const Object* container;
        std::size_t next;    // The index of the next value.
        std::size_t sorted;  // The index of the first entry of a dictionary in sorted_.
    };

    // Returns false once the document is too large. Drops a text that is only measured.
    bool checkSize() {
        if (purpose_ == Purpose::Measure) {
            measured_ += out_.size();
            out_.shrinkTo(0);
        }
        return !isTooLarge();
    }

    bool put(std::string_view text) { return out_.append(text.data(), text.size()); }

    bool indent(std::size_t tabs) {
        if (!out_.reserve(tabs)) {
            return false;
        }
        std::memset(out_.end(), '\t', tabs);
        out_.advance(tabs);
        return true;
    }

    bool line(std::string_view text) { return indent(depth_) && put(text) && put("\n"); }

    bool line(std::string_view start, std::string_view text, std::string_view end) {
        return indent(depth_) && put(start) && put(text) && put(end);
    }

    bool writeValue(const Object* value) {
        switch (typeOf(value)) {
            case Type::String:
                return indent(depth_) && put("<string>") && writeText(*asString(value)) &&
                       put("</string>\n");
            case Type::Number:
                return writeNumber(numberOf(value));
            case Type::Dictionary:
                return openDictionary(*asDictionary(value));
            case Type::Array:
                return openArray(*asArray(value));
            case Type::Boolean:
                return line(value == asObject(kCFBooleanTrue) ? "<true/>" : "<false/>");
            case Type::Data:
                return writeData(*asData(value));
            case Type::Date:
                return writeDate(gregorianDate(asDate(value)->time));
            case Type::Uid:
                return writeUid(asUid(value)->value);
            default:
                return false;
        }
    }

    bool openArray(const Array& array) {
        if (depth_ == kMaximumNesting || !array.valuesAreObjects) {
            return false;
        }
        if (array.count == 0) {
            return line("<array/>");
        }
        return line("<array>") && enter(array, 0);
    }

    bool openDictionary(const Dictionary& dictionary) {
        if (depth_ == kMaximumNesting || !dictionary.valuesAreObjects ||
            !hasStringKeys(dictionary)) {
            return false;
        }
        if (dictionary.count == 0) {
            return line("<dict/>");
        }
        const std::size_t sorted = sorted_.size();
        return sort(dictionary) && line("<dict>") && enter(dictionary, sorted);
    }

    bool enter(const Object& container, std::size_t sorted) {
        levels_[depth_++] = {&container, 0, sorted};
        return true;
    }

    // Appends the sorted entries of the dictionary to sorted_.
    bool sort(const Dictionary& dictionary) {
        const auto isBefore = [](const Dictionary::Entry& one, const Dictionary::Entry& other) {
            return compareStrings(*asString(one.key), *asString(other.key)) < 0;
        };
        const std::size_t first = sorted_.size();
        if (!sorted_.append(dictionary.entries, dictionary.count)) {
            return false;
        }
        Dictionary::Entry* const begin = sorted_.data() + first;
        Dictionary::Entry* const end = sorted_.data() + sorted_.size();
        // The entries of a document that this writer wrote are mostly in order.
        if (!std::is_sorted(begin, end, isBefore)) {
            std::sort(begin, end, isBefore);
        }
        return true;
    }

    bool writeNextOfContainer() {
        Level& level = levels_[depth_ - 1];
        if (level.container->type == Type::Array) {
            const Array& array = *asArray(level.container);
            if (level.next < array.count) {
                return writeValue(array.values[level.next++]);
            }
            --depth_;
            return line("</array>");
        }
        if (level.next < asDictionary(level.container)->count) {
            const Dictionary::Entry entry = sorted_[level.sorted + level.next++];
            return indent(depth_) && put("<key>") && writeText(*asString(entry.key)) &&
                   put("</key>\n") && writeValue(entry.value);
        }
        sorted_.shrinkTo(level.sorted);
        --depth_;
        return line("</dict>");
    }

    bool writeText(const String& string) {
        if (!string.isWide) {
            return writeAscii(string.ascii(), string.length);
        }
        const UniChar* const units = string.wide();
        const std::size_t length = utf8Length(units, string.length);
        return length == kIllFormed ? writeIllFormed(units, string.length)
                                    : writeUnits(units, string.length);
    }

    bool writeAscii(const char* text, std::size_t count) {
        // The first size is enough for any short text. The size of a long text is counted exactly.
        constexpr std::size_t kLong = 4096;
        const std::size_t size =
            count < kLong
                ? count * kLongestEscape
                : std::accumulate(text, text + count, count, [](std::size_t sum, char character) {
                      return sum + escapeOf(character).size();
                  });
        if (!out_.reserve(size)) {
            return false;
        }
        char* end = out_.end();
        for (std::size_t at = 0; at < count; ++at) {
            const std::string_view escape = escapeOf(text[at]);
            if (escape.empty()) {
                *end++ = text[at];
            } else {
                end = std::copy(escape.begin(), escape.end(), end);
            }
        }
        out_.advance(static_cast<std::size_t>(end - out_.end()));
        return true;
    }

    // Writes well-formed units.
    bool writeUnits(const UniChar* units, std::size_t count) {
        if (count > PTRDIFF_MAX / kLongestEscape || !out_.reserve(count * kLongestEscape)) {
            return false;
        }
        char* end = out_.end();
        for (std::size_t at = 0; at < count; ++at) {
            const std::string_view escape =
                units[at] < 0x80 ? escapeOf(static_cast<char>(units[at])) : std::string_view();
            const std::size_t taken = isHighSurrogate(units[at]) ? 2 : 1;
            end = escape.empty() ? utf16ToUtf8(units + at, taken, end)
                                 : std::copy(escape.begin(), escape.end(), end);
            at += taken - 1;
        }
        out_.advance(static_cast<std::size_t>(end - out_.end()));
        return true;
    }

    // Writes units with a lone surrogate, which cannot be written. The units are divided into
    // stretches of up to 64 units without < > &. A stretch with a lone surrogate loses its
    // characters from the first one that is not ASCII. Saved files have always lost these
    // characters.
    bool writeIllFormed(const UniChar* units, std::size_t count) {
        constexpr std::size_t kLongestStretch = 64;
        std::size_t start = 0;
        for (std::size_t at = 0; at <= count; ++at) {
            const bool isEscaped =
                at < count && units[at] < 0x80 && !escapeOf(static_cast<char>(units[at])).empty();
            const bool isPairAtTheEnd =
                at < count && isHighSurrogate(units[at]) && at - start + 2 >= kLongestStretch;
            if (at < count && !isEscaped && !isPairAtTheEnd && at - start < kLongestStretch) {
                continue;
            }
            if (!writeStretch(units + start, at - start) ||
                (isEscaped && !put(escapeOf(static_cast<char>(units[at]))))) {
                return false;
            }
            start = isEscaped ? at + 1 : at;
        }
        return true;
    }

    bool writeStretch(const UniChar* units, std::size_t count) {
        const UniChar* const end =
            std::find_if(units, units + count, [](UniChar unit) { return unit >= 0x80; });
        const auto ascii = static_cast<std::size_t>(end - units);
        const bool isLost = utf8Length(end, count - ascii) == kIllFormed;
        return writeUnits(units, isLost ? ascii : count);
    }

    bool writeNumber(const Number& number) {
        switch (number.kind) {
            case Number::Kind::Signed:
                return writeInteger(number.whole);
            case Number::Kind::Large:
                return writeInteger(static_cast<std::uint64_t>(number.whole));
            case Number::Kind::Real:
                break;
        }
        return writeReal(number.real);
    }

    template <typename T>
    bool writeInteger(T integer) {
        char text[32] = {};
        const auto end = std::to_chars(text, text + sizeof text, integer);
        return line("<integer>", {text, static_cast<std::size_t>(end.ptr - text)}, "</integer>\n");
    }

    bool writeReal(double real) {
        constexpr int kDigits = 17;  // This many digits identify every double.
        char text[64] = {};
        std::string_view written;
        if (std::isnan(real)) {
            written = "nan";
        } else if (std::isinf(real)) {
            written = real > 0 ? "+infinity" : "-infinity";
        } else if (real == 0.0) {
            written = "0.0";
        } else {
            const auto end =
                std::to_chars(text, text + sizeof text, real, std::chars_format::general, kDigits);
            written = {text, static_cast<std::size_t>(end.ptr - text)};
        }
        return line("<real>", written, "</real>\n");
    }

    bool writeDate(const GregorianDate& date) {
        char text[64] = {};
        const int size =
            std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", date.year,
                          date.month, date.day, date.hour, date.minute, date.second);
        return line("<date>", {text, static_cast<std::size_t>(size)}, "</date>\n");
    }

    // Writes a UID as the dictionary that it stands for.
    bool writeUid(std::uint32_t value) {
        if (depth_ == kMaximumNesting) {
            return false;
        }
        char text[16] = {};
        const auto end = std::to_chars(text, text + sizeof text, value);
        return line("<dict>") && indent(depth_ + 1) && put("<key>CF$UID</key>\n") &&
               indent(depth_ + 1) && put("<integer>") &&
               put({text, static_cast<std::size_t>(end.ptr - text)}) && put("</integer>\n") &&
               line("</dict>");
    }

    // Writes base64. A line has 76 columns including its tabs, which count as 8 columns each. A
    // line has at most eight tabs, even in deeper containers.
    bool writeData(const Data& data) {
        constexpr std::size_t kMostTabs = 8;
        const std::size_t tabs = std::min(depth_, kMostTabs);
        const std::size_t bytesALine = (76 - 8 * tabs) / 4 * 3;
        if (!line("<data>")) {
            return false;
        }
        for (std::size_t at = 0; at < data.size; at += bytesALine) {
            if (!indent(tabs) ||
                !writeBase64(data.bytes + at, std::min(bytesALine, data.size - at)) || !put("\n")) {
                return false;
            }
        }
        return line("</data>");
    }

    bool writeBase64(const UInt8* bytes, std::size_t count) {
        constexpr char kDigits[] =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        if (!out_.reserve((count + 2) / 3 * 4)) {
            return false;
        }
        char* end = out_.end();
        for (std::size_t at = 0; at < count; at += 3) {
            const std::size_t left = count - at;
            const unsigned group = static_cast<unsigned>(bytes[at]) << 16 |
                                   (left > 1 ? static_cast<unsigned>(bytes[at + 1]) << 8 : 0U) |
                                   (left > 2 ? static_cast<unsigned>(bytes[at + 2]) : 0U);
            *end++ = kDigits[group >> 18];
            *end++ = kDigits[group >> 12 & 0x3F];
            *end++ = left > 1 ? kDigits[group >> 6 & 0x3F] : '=';
            *end++ = left > 2 ? kDigits[group & 0x3F] : '=';
        }
        out_.advance(static_cast<std::size_t>(end - out_.end()));
        return true;
    }

    Buffer<char>& out_;
    const Purpose purpose_;
    std::size_t measured_ = 0;          // The size of the text that was dropped.
    Buffer<Dictionary::Entry> sorted_;  // The entries of the open dictionaries, outermost first.
    std::size_t depth_ = 0;
    Level levels_[kMaximumNesting];
};

}  // namespace

bool writeXml(const Object* root, Buffer<char>& document) {
    return XmlWriter(document, XmlWriter::Purpose::Write).write(root);
}

bool isTooLargeToWrite(const Object* root) {
    Buffer<char> piece;
    XmlWriter writer(piece, XmlWriter::Purpose::Measure);
    return !writer.write(root) && writer.isTooLarge();
}

}  // namespace cf
