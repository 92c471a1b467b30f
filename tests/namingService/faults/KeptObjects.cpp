// SPDX-License-Identifier: Apache-2.0

#include "KeptObjects.h"

#include <CoreFoundation/CoreFoundation.h>

#include <stdexcept>
#include <string>

#include "support/FailingCalls.h"

namespace qv::tests {
namespace {

template <class Create>
long untilOneIsAllocated(Create create) {
    // The layer keeps the memory of fewer objects.
    constexpr long kMost = 1000000;
    for (long held = 1; held < kMost; ++held) {
        const long before = liveAllocations();
        if (create() != nullptr && liveAllocations() != before) {
            return held;
        }
    }
    throw std::logic_error("no object takes an allocation");
}

}  // namespace

long useUpKeptObjects() {
    // The layer does not keep the memory of strings of this length.
    constexpr std::size_t kLongest = 96;
    long held = untilOneIsAllocated([] { return CFDateCreate(kCFAllocatorDefault, 1.5); });
    for (std::string text = "ab"; text.size() < kLongest; text += 'c') {
        held += untilOneIsAllocated([&text] {
            return CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(),
                                             kCFStringEncodingUTF8);
        });
    }
    return held;
}

}  // namespace qv::tests
