// How large the XML document of a tree may become.
#ifndef COREFOUNDATION_WRITTENSIZE_H
#define COREFOUNDATION_WRITTENSIZE_H

#include <cstddef>

#include "Data.h"
#include "Object.h"
#include "String.h"
#include "XmlWriter.h"

namespace cf {

// Counts what a tree takes as an XML document while a reader builds the tree. A small document can
// stand for a tree that no memory holds in writing: a binary one refers to its parts many times,
// and deep nesting indents every line. Each reader refuses such a document, since what it loads
// must be possible to save.
class WrittenSize {
  public:
    // Counts a key or a value inside of `depth` containers. Returns false once the tree takes more
    // than kMostWritten bytes. A value counts also if a later one with an equal key replaces it,
    // and a character counts also if it cannot be written, since each of them takes time to read.
    bool add(const Object* object, std::size_t depth) {
        constexpr std::size_t kShortestLine = 8;  // <true/>
        atLeast_ += depth + kShortestLine + lengthOf(object);
        return atLeast_ <= kMostWritten;
    }

    // Returns whether the whole tree can be written in kMostWritten bytes. Only a large tree has to
    // be measured for that.
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
