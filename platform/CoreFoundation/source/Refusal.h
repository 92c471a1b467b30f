// Why a document is refused, and the limits that all readers keep to.
#ifndef COREFOUNDATION_REFUSAL_H
#define COREFOUNDATION_REFUSAL_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace cf {

// A constant text, and the line, counted from 1, where that is known.
struct Refusal {
    const char* reason = nullptr;
    std::size_t line = 0;
};

inline constexpr char kOutOfMemory[] = "out of memory";
inline constexpr char kNestedTooDeep[] = "too many containers inside each other";
inline constexpr char kTooLarge[] = "a tree out of proportion to the document";

// Containers nested deeper than this are read, valid and written nowhere.
constexpr std::size_t kMaximumNesting = 1024;

// How many bytes a document's tree may take when it is written, where each line stands as many
// columns to the right as it is nested deep. Other documents than those made to be so come nowhere
// near it.
constexpr std::size_t mostWritten(std::size_t documentSize) {
    constexpr std::size_t kAtLeast = std::size_t{1} << 27;
    constexpr std::size_t kPerByte = 128;
    return documentSize > SIZE_MAX / kPerByte ? SIZE_MAX
                                              : std::max(documentSize * kPerByte, kAtLeast);
}

}  // namespace cf

#endif  // COREFOUNDATION_REFUSAL_H
