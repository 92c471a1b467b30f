// SPDX-License-Identifier: Apache-2.0

// Counts the size that the XML document of a tree has at least.
#ifndef COREFOUNDATION_WRITTENSIZE_H
#define COREFOUNDATION_WRITTENSIZE_H

#include <cstddef>

#include "Data.h"
#include "Limits.h"
#include "Object.h"
#include "String.h"
#include "XmlWriter.h"

namespace cf {

// Counts the bytes that a tree takes as an XML document while a reader builds the tree. A small
// document can stand for a tree whose XML document does not fit in memory: a binary document refers
// to its parts many times, and deep nesting indents every line. Each reader refuses such a
// document, so that every tree that is read can be saved.
class WrittenSize {
  public:
    // Counts a key or a value inside of `depth` containers. Returns false once the tree takes more
    // than kMostWritten bytes. Counts a value even if a later value of an equal key replaces it,
    // and a character even if it cannot be written, since reading each of them takes time.
    bool add(const Object* object, std::size_t depth) {
        constexpr std::size_t kShortestLine = 8;  // <true/>
        atLeast_ += depth + kShortestLine + lengthOf(object);
        return atLeast_ <= kMostWritten;
    }

    // Returns whether the document of the whole tree has at most kMostWritten bytes. Measures the
    // document only if the tree is large.
    bool fits(const Object* root) const {
        constexpr std::size_t kMostPerLeast = 16;
        return atLeast_ + lengthOf(root) < kMostWritten / kMostPerLeast || !isTooLargeToWrite(root);
    }

  private:
    static std::size_t lengthOf(const Object* object) {
        switch (typeOf(object)) {
            case Type::String:
                return asString(object)->length;
            case Type::Data:
                return asData(object)->size;
            default:
                return 0;
        }
    }

    std::size_t atLeast_ = 0;
};

}  // namespace cf

#endif  // COREFOUNDATION_WRITTENSIZE_H
