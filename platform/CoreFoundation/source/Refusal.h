// SPDX-License-Identifier: Apache-2.0

// Declares the reasons for which a document is refused.
#ifndef COREFOUNDATION_REFUSAL_H
#define COREFOUNDATION_REFUSAL_H

#include <cstddef>

namespace cf {

// A constant text, and the line in which the reader stopped. Lines count from 1; 0 means that the
// line is not known.
struct Refusal {
    const char* reason = nullptr;
    std::size_t line = 0;
};

inline constexpr char kOutOfMemory[] = "out of memory";
inline constexpr char kNestedTooDeep[] = "too many containers inside each other";
inline constexpr char kTooLarge[] = "a tree of more than 512 MiB as an XML document";

}  // namespace cf

#endif  // COREFOUNDATION_REFUSAL_H
