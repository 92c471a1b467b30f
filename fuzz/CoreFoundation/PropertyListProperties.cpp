// SPDX-License-Identifier: Apache-2.0

#include "CoreFoundation/PropertyListProperties.h"

#include <CoreFoundation/CoreFoundation.h>

#include "CoreFoundation/Tree.h"
#include "platform/CoreFoundation/Objects.h"
#include "support/Require.h"

namespace qv::fuzz {
namespace {

using tests::own;
using tests::Owned;
using Kind = Tree::Kind;

bool isString(const Tree& tree) {
    return tree.kind == Kind::kString;
}

// Returns whether a document of the format can hold the tree. A tree that was read is never nested
// too deep.
bool isValid(const Tree& tree) {
    return !anyNode(tree, [](const Tree& node) {
        if (node.kind == Kind::kNull || node.kind == Kind::kSet || node.kind == Kind::kOther) {
            return true;
        }
        for (std::size_t key = 0; node.kind == Kind::kDictionary && key < node.elements.size();
             key += 2) {
            if (!isString(node.elements[key])) {
                return true;
            }
        }
        return false;
    });
}

bool isValidInOldStyle(const Tree& tree) {
    return isValid(tree) && !anyNode(tree, [](const Tree& node) {
               return !isString(node) && node.kind != Kind::kData && node.kind != Kind::kArray &&
                      node.kind != Kind::kDictionary;
           });
}

bool hasNaN(const Tree& tree) {
    return anyNode(tree, [](const Tree& node) { return node.number != node.number; });
}

// Returns whether a string begins with a byte-order mark when it is written. A string with a lone
// surrogate loses characters in writing, so it may begin with any mark that it holds.
bool mayBeginWithMark(const Tree& tree) {
    return anyNode(tree, [](const Tree& node) {
        const std::size_t mark = node.text.find(u'\xFEFF');
        return mark == 0 || (mark != std::u16string::npos && !isWellFormed(node.text));
    });
}

bool hasIllFormedKey(const Tree& tree) {
    return anyNode(tree, [](const Tree& node) {
        for (std::size_t key = 0; node.kind == Kind::kDictionary && key < node.elements.size();
             key += 2) {
            if (!isWellFormed(node.elements[key].text)) {
                return true;
            }
        }
        return false;
    });
}

bool isAllUnicode(const Tree& tree) {
    return !anyNode(tree, [](const Tree& node) { return !isWellFormed(node.text); });
}

Owned<CFDataRef> wrap(const std::uint8_t* data, std::size_t size) {
    return own(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, data, static_cast<CFIndex>(size),
                                           kCFAllocatorNull));
}

void checkMutability(CFTypeRef object, bool isMutable) {
    if (CFGetTypeID(object) == CFDictionaryGetTypeID()) {
        const auto* const dictionary = static_cast<CFDictionaryRef>(object);
        const CFIndex count = CFDictionaryGetCount(dictionary);
        // No document has an array as a key.
        const auto key = tests::makeArray();
        CFDictionaryAddValue(const_cast<CFMutableDictionaryRef>(dictionary), key.get(),
                             kCFBooleanTrue);
        require(CFDictionaryGetCount(dictionary) == count + (isMutable ? 1 : 0),
                "the mutability of a dictionary is wrong");
        CFDictionaryRemoveValue(const_cast<CFMutableDictionaryRef>(dictionary), key.get());
        require(CFDictionaryGetCount(dictionary) == count, "a removed key is still counted");
    } else if (CFGetTypeID(object) == CFArrayGetTypeID()) {
        const auto* const array = static_cast<CFArrayRef>(object);
        const CFIndex count = CFArrayGetCount(array);
        CFArrayAppendValue(const_cast<CFMutableArrayRef>(array), kCFBooleanTrue);
        require(CFArrayGetCount(array) == count + (isMutable ? 1 : 0),
                "the mutability of an array is wrong");
    }
}

// Checks that the other function, with the other options, reads the same tree.
void checkOtherReadings(CFDataRef document, CFTypeRef object, const Tree& tree) {
    for (const CFOptionFlags option :
         {kCFPropertyListImmutable, kCFPropertyListMutableContainersAndLeaves}) {
        CFPropertyListFormat format = {};
        CFErrorRef given = nullptr;
        const auto other = own(
            CFPropertyListCreateWithData(kCFAllocatorDefault, document, option, &format, &given));
        const auto error = own(given);
        require(static_cast<bool>(other) == (object != nullptr),
                "only one of two options refuses the document");
        require(static_cast<bool>(error) != static_cast<bool>(other),
                "a failure has no error, or a success has one");
        if (!other) {
            require(CFErrorGetCode(error.get()) == kCFPropertyListReadCorruptError,
                    "the code of a failure is wrong");
            const auto reason = own(CFErrorCopyDescription(error.get()));
            require(reason && CFStringGetLength(reason.get()) > 0, "an error has no reason");
            continue;
        }
        require(format == kCFPropertyListOpenStepFormat ||
                    format == kCFPropertyListXMLFormat_v1_0 ||
                    format == kCFPropertyListBinaryFormat_v1_0,
                "the format is unknown");
        require(treeOf(other.get()) == tree, "another option reads another tree");
        if (!hasNaN(tree)) {
            require(tests::equal(other.get(), object), "equal trees are not equal");
            require(CFHash(other.get()) == CFHash(object), "equal trees have different hashes");
        }
        checkMutability(other.get(), option != kCFPropertyListImmutable);
    }
}

void checkWriting(CFTypeRef object, const Tree& tree) {
    const auto document = tests::writeDocument(object);
    require(document.has_value() == isValid(tree),
            "a valid tree is not written, or an invalid one is");
    if (!document) {
        return;
    }
    const auto back = tests::readDocument(*document);
    if (!back) {
        require(cannotBeRead(tree), "the written document is refused");
        return;
    }
    const Tree expected = readBack(tree);
    const Tree read = treeOf(back.get());
    require(read == expected, "the written document yields another tree");
    if (expected == tree && !hasNaN(tree) && !hasInexpressibleDate(tree) && isAllUnicode(tree)) {
        require(tests::equal(object, back.get()), "the tree of the written document is not equal");
    }
    // A year without four digits may come back as another year, and a key that lost some characters
    // may come back in another place.
    if (!mayBeginWithMark(tree) && !hasInexpressibleDate(tree) && !hasIllFormedKey(tree)) {
        require(tests::writeDocument(back.get()) == document,
                "the tree of the written document is written differently");
    }
}

}  // namespace

void checkPropertyListProperties(const std::uint8_t* data, std::size_t size) {
    const auto document = wrap(data, size);
    CFStringRef given = nullptr;
    const auto object = own(CFPropertyListCreateFromXMLData(
        kCFAllocatorDefault, document.get(), kCFPropertyListMutableContainers, &given));
    const auto reason = own(given);
    require(static_cast<bool>(reason) != static_cast<bool>(object),
            "a failure has no reason, or a success has one");
    if (!object) {
        require(CFStringGetLength(reason.get()) > 0, "the reason is empty");
        checkOtherReadings(document.get(), nullptr, {});
        return;
    }
    const Tree tree = treeOf(object.get());
    require(!anyNode(tree, [](const Tree& node) { return node.kind == Kind::kOther; }),
            "an object has an unknown type");
    require(static_cast<bool>(own(CFCopyDescription(object.get()))), "a tree has no description");

    const auto valid = [&object](CFPropertyListFormat format) {
        return CFPropertyListIsValid(object.get(), format) != FALSE;
    };
    require(valid(kCFPropertyListBinaryFormat_v1_0) == isValid(tree), "the validity is wrong");
    require(valid(kCFPropertyListXMLFormat_v1_0) == isValid(tree), "the validity as XML is wrong");
    require(valid(kCFPropertyListOpenStepFormat) == isValidInOldStyle(tree),
            "the validity in the old style is wrong");
    checkWriting(object.get(), tree);
    checkOtherReadings(document.get(), object.get(), tree);
    checkMutability(object.get(), true);
}

}  // namespace qv::fuzz
