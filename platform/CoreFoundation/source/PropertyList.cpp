// SPDX-License-Identifier: Apache-2.0

// Chooses the reader of a document, and defines the public functions of property lists.
#include <CoreFoundation/CFPropertyList.h>

#include <cstdio>
#include <string_view>

#include "BinaryReader.h"
#include "Buffer.h"
#include "Data.h"
#include "Error.h"
#include "OldStyleReader.h"
#include "Refusal.h"
#include "TextEncoding.h"
#include "Validity.h"
#include "XmlReader.h"
#include "XmlWriter.h"

namespace cf {

namespace {

// Returns whether memory ran out. The next reader must not be tried then, since it could read the
// document as something else.
bool isOutOfMemory(const Refusal& refusal) {
    return refusal.reason == kOutOfMemory;
}

// Collects the kinds of document that were tried, and the reason why each was refused.
class Refusals {
  public:
    void add(const char* what, const Refusal& refusal) {
        if (count_ < sizeof entries_ / sizeof entries_[0]) {
            entries_[count_++] = {what, refusal};
        }
    }

    // Returns the text of all refusals. Returns null if memory ran out, also if that is the reason
    // of a refusal. A caller can then tell a shortage from a bad document.
    Ref<String> text() const {
        char text[512] = "";
        std::size_t length = 0;
        for (std::size_t at = 0; at < count_; ++at) {
            const auto& [what, refusal] = entries_[at];
            if (isOutOfMemory(refusal)) {
                return {};
            }
            char line[32] = "";
            if (refusal.line != 0) {
                std::snprintf(line, sizeof line, " (line %zu)", refusal.line);
            }
            const int written = std::snprintf(text + length, sizeof text - length, "%s%s: %s%s",
                                              at == 0 ? "" : "; ", what, refusal.reason, line);
            length += static_cast<std::size_t>(written);
        }
        return Ref<String>(makeStringFromUtf8({text, length}));
    }

  private:
    struct Entry {
        const char* what;
        Refusal refusal;
    };
    Entry entries_[2] = {};
    std::size_t count_ = 0;
};

const Object* readDocument(std::string_view document, bool containersAreMutable,
                           CFPropertyListFormat& format, Refusals& refusals) {
    Refusal refusal;
    if (document.empty()) {
        refusals.add("property list", {"no bytes", 0});
        return nullptr;
    }
    if (looksBinary(document)) {
        format = kCFPropertyListBinaryFormat_v1_0;
        if (const auto* const root = readBinary(document, containersAreMutable, refusal)) {
            return root;
        }
        refusals.add("binary property list", refusal);
        if (isOutOfMemory(refusal)) {
            return nullptr;
        }
    }
    DecodedText text;
    if (!decodeText(document, text, &refusal.reason)) {
        refusal.line = 0;
        refusals.add("text", refusal);
        return nullptr;
    }
    format = kCFPropertyListXMLFormat_v1_0;
    if (const auto* const root = readXml(text.utf8, containersAreMutable, refusal)) {
        return root;
    }
    if (isOutOfMemory(refusal)) {
        refusals.add("XML property list", refusal);
        return nullptr;
    }
    Refusal oldStyleRefusal;
    format = kCFPropertyListOpenStepFormat;
    if (provideUnits(text, &oldStyleRefusal.reason)) {
        if (const auto* const root =
                readOldStyle(text.units, containersAreMutable, oldStyleRefusal)) {
            return root;
        }
    }
    // A text that begins with a tag is meant as XML.
    const std::size_t first = text.utf8.find_first_not_of(" \t\r\n");
    if (first != std::string_view::npos && text.utf8[first] == '<' &&
        !isOutOfMemory(oldStyleRefusal)) {
        refusals.add("XML property list", refusal);
    } else {
        refusals.add("old-style property list", oldStyleRefusal);
    }
    return nullptr;
}

const Object* readData(CFAllocatorRef allocator, CFDataRef data, CFOptionFlags mutability,
                       CFPropertyListFormat& format, Refusals& refusals) {
    if (allocator == kCFAllocatorNull) {
        refusals.add("property list", {"the null allocator has no memory", 0});
        return nullptr;
    }
    std::string_view document;
    if (data != nullptr) {
        document = {reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                    static_cast<std::size_t>(CFDataGetLength(data))};
    }
    return readDocument(document, mutability != kCFPropertyListImmutable, format, refusals);
}

// Writes a tree as XML. Returns null if the tree is not a valid property list or is too large, or
// if memory runs out.
Data* writeData(CFAllocatorRef allocator, CFPropertyListRef root) {
    Buffer<char> document;
    return root != nullptr && writeXml(asObject(root), document) ? makeData(document, allocator)
                                                                 : nullptr;
}

void report(CFErrorRef* error, CFIndex code, Ref<String> description) {
    if (error != nullptr) {
        *error = makeError(code, std::move(description));
    }
}

}  // namespace

}  // namespace cf

CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef allocator, CFDataRef data,
                                                  CFOptionFlags mutability,
                                                  CFStringRef* errorString) {
    CFPropertyListFormat format = kCFPropertyListXMLFormat_v1_0;
    cf::Refusals refusals;
    const auto* const root = cf::readData(allocator, data, mutability, format, refusals);
    if (errorString != nullptr) {
        *errorString =
            root != nullptr ? nullptr : reinterpret_cast<CFStringRef>(refusals.text().pass());
    }
    return root;
}

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                               CFOptionFlags mutability,
                                               CFPropertyListFormat* format, CFErrorRef* error) {
    CFPropertyListFormat found = kCFPropertyListXMLFormat_v1_0;
    cf::Refusals refusals;
    const auto* const root = cf::readData(allocator, data, mutability, found, refusals);
    if (root == nullptr) {
        cf::report(error, kCFPropertyListReadCorruptError, refusals.text());
    } else if (format != nullptr) {
        *format = found;
    }
    return root;
}

Boolean CFPropertyListIsValid(CFPropertyListRef propertyList, CFPropertyListFormat format) {
    return cf::isValid(cf::asObject(propertyList), format) ? TRUE : FALSE;
}

CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator, CFPropertyListRef propertyList) {
    return reinterpret_cast<CFDataRef>(cf::writeData(allocator, propertyList));
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef propertyList,
                                   CFPropertyListFormat format, CFOptionFlags /*options*/,
                                   CFErrorRef* error) {
    cf::Data* const data =
        format == kCFPropertyListXMLFormat_v1_0 ? cf::writeData(allocator, propertyList) : nullptr;
    if (data == nullptr) {
        cf::report(error, kCFPropertyListWriteStreamError,
                   cf::Ref<cf::String>(cf::makeStringFromUtf8(
                       format == kCFPropertyListXMLFormat_v1_0
                           ? "the tree is not a property list, it takes more than 512 MiB as XML, "
                             "or memory ran out"
                           : "only XML is written")));
    }
    return reinterpret_cast<CFDataRef>(data);
}
