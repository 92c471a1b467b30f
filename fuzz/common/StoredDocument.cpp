// SPDX-License-Identifier: Apache-2.0

#include "common/StoredDocument.h"

#include <CoreFoundation/CoreFoundation.h>

#include <utility>
#include <vector>

#include "CoreFoundation/Tree.h"
#include "platform/CoreFoundation/Objects.h"
#include "support/Require.h"

namespace qv::fuzz {
namespace {

using tests::own;
using tests::Owned;
using Kind = Tree::Kind;

StoredService serviceOf(const Tree& tree) {
    StoredService service;
    if (const Tree* const id = find(&tree, u"id")) {
        service.id = id->sint32;
    }
    const Tree* const address = find(&tree, u"address");
    if (address != nullptr && address->kind == Kind::kString) {
        service.address = tests::utf8Of(tests::makeString(address->text).get());
        if (service.address) {
            service.address->resize(std::char_traits<char>::length(service.address->c_str()));
        }
    }
    return service;
}

Directory servicesOf(const Tree& root) {
    const Tree* const list = find(find(&root, u"Address"), u"services");
    if (list == nullptr || list->kind != Kind::kArray) {
        return {};
    }
    Directory services;
    for (const Tree& element : list->elements) {
        if (element.kind != Kind::kDictionary) {
            return {};
        }
        const StoredService service = serviceOf(element);
        services[service.id.value_or(0)] = service;
    }
    return services;
}

// Returns the root of the document, or null if the plug-in cannot load it.
Owned<> rootOf(const std::string& bytes) {
    if (bytes.empty()) {
        return {};
    }
    Owned<> root = tests::readDocument(bytes);
    if (!root || CFGetTypeID(root.get()) != CFDictionaryGetTypeID() ||
        CFPropertyListIsValid(root.get(), kCFPropertyListBinaryFormat_v1_0) == FALSE) {
        return {};
    }
    return root;
}

Owned<CFStringRef> makeAddress(const std::string& address) {
    return own(
        CFStringCreateWithCString(kCFAllocatorDefault, address.c_str(), kCFStringEncodingUTF8));
}

// Returns the dictionary of the services, or null if a service cannot be stored.
Owned<CFMutableDictionaryRef> entryOf(const Directory& services) {
    auto list = tests::makeArray();
    for (const auto& [key, service] : services) {
        const auto element = tests::makeDictionary();
        if (service.id) {
            CFDictionarySetValue(element.get(), CFSTR("id"), tests::makeInteger(*service.id).get());
        }
        if (service.address) {
            const auto address = makeAddress(*service.address);
            if (!address) {
                return {};
            }
            CFDictionarySetValue(element.get(), CFSTR("address"), address.get());
        }
        CFArrayAppendValue(list.get(), element.get());
    }
    auto entry = tests::makeDictionary();
    CFDictionarySetValue(entry.get(), CFSTR("services"), list.get());
    return entry;
}

// Returns whether the document may give the services back otherwise: a key begins with a byte order
// mark, which it loses in a document and may then equal another key, or the document is no
// dictionary.
bool isUncertain(const Tree& root, const Tree& back) {
    for (std::size_t key = 0; key < root.elements.size(); key += 2) {
        if (root.elements[key].text.substr(0, 1) == u"\uFEFF") {
            return true;
        }
    }
    return back.kind != Kind::kDictionary;
}

}  // namespace

Document documentOf(std::string bytes) {
    Document document;
    if (const Owned<> root = rootOf(bytes)) {
        document.isGood = true;
        document.services = servicesOf(treeOf(root.get()));
    }
    document.bytes = std::move(bytes);
    return document;
}

std::optional<Directory> asStored(const Directory& services) {
    Directory stored = services;
    for (auto& [id, service] : stored) {
        if (!service.address) {
            continue;
        }
        const auto address = makeAddress(*service.address);
        if (!address) {
            return std::nullopt;
        }
        std::u16string units = tests::unitsOf(address.get());
        if (units.substr(0, 1) == u"\uFEFF") {
            units.erase(0, 1);
        }
        service.address = tests::utf8Of(tests::makeString(units).get());
    }
    return stored;
}

std::optional<Document> savedAfter(const Document& loaded, const Directory& services) {
    const auto entry = entryOf(services);
    if (!entry) {
        return std::nullopt;
    }
    const Owned<> root = rootOf(loaded.bytes);
    CFDictionarySetValue(static_cast<CFMutableDictionaryRef>(const_cast<void*>(root.get())),
                         CFSTR("Address"), entry.get());
    const auto bytes = tests::writeDocument(root.get());
    require(bytes.has_value(), "the loaded document cannot be written");

    Document saved = documentOf(*bytes);
    const Tree tree = treeOf(root.get());
    const Tree expected = readBack(tree);
    if (!saved.isGood) {
        require(cannotBeRead(tree), "the saved document cannot be loaded");
        return saved;
    }
    require(treeOf(rootOf(*bytes).get()) == expected, "the saved document reads back otherwise");
    require(isUncertain(tree, expected) || saved.services == asStored(services),
            "a save loses services");
    return saved;
}

}  // namespace qv::fuzz
