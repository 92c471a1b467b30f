// Provides callbacks of containers that count their calls.
#ifndef QV_TESTS_COUNTING_CALL_BACKS_H
#define QV_TESTS_COUNTING_CALL_BACKS_H

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <map>

namespace qv::tests {

// The values are pointers to int. Two values are equal if the numbers are.
struct CountingCallBacks {
    // Counts how often each value is retained. The count is negative if a value was released too
    // often.
    static inline std::map<const void*, int> held;
    static inline int comparisons = 0;

    static void reset() {
        held.clear();
        comparisons = 0;
    }

    // Returns the sum of the counts of all values.
    static int heldInAll() {
        int sum = 0;
        for (const auto& [value, count] : held) {
            sum += count;
        }
        return sum;
    }

    static const void* retain(CFAllocatorRef, const void* value) {
        ++held[value];
        return value;
    }
    static void release(CFAllocatorRef, const void* value) { --held[value]; }
    static CFStringRef describe(const void*) { return CFStringRef(CFRetain(CFSTR("an int"))); }
    static Boolean areEqual(const void* one, const void* other) {
        ++comparisons;
        return *static_cast<const int*>(one) == *static_cast<const int*>(other) ? TRUE : FALSE;
    }
    static CFHashCode hash(const void* value) {
        return static_cast<CFHashCode>(*static_cast<const int*>(value));
    }

    static constexpr CFArrayCallBacks ofArray{0, retain, release, describe, areEqual};
    static constexpr CFDictionaryKeyCallBacks ofKeys{0, retain, release, describe, areEqual, hash};
    static constexpr CFDictionaryValueCallBacks ofValues{0, retain, release, describe, areEqual};
};

}  // namespace qv::tests

#endif  // QV_TESTS_COUNTING_CALL_BACKS_H
