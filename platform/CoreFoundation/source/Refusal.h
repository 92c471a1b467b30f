// Why a document is refused, and how deep one may be nested.
#ifndef COREFOUNDATION_REFUSAL_H
#define COREFOUNDATION_REFUSAL_H

#include <cstddef>

namespace cf {

// A constant text, and the line, counted from 1, where that is known.
struct Refusal {
    const char* reason = nullptr;
    std::size_t line = 0;
};

inline constexpr char kOutOfMemory[] = "out of memory";
inline constexpr char kNestedTooDeep[] = "too many containers inside each other";
inline constexpr char kTooLarge[] = "a tree of more than 512 MiB as an XML document";

// Containers nested deeper than this are read, valid and written nowhere.
constexpr std::size_t kMaximumNesting = 1024;

}  // namespace cf

#endif  // COREFOUNDATION_REFUSAL_H
