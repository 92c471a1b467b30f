// SPDX-License-Identifier: Apache-2.0

// Decodes the 8-bit characters of the octal escapes in old-style property lists.
#ifndef COREFOUNDATION_NEXTSTEPLATIN_H
#define COREFOUNDATION_NEXTSTEPLATIN_H

#include <CoreFoundation/CFBase.h>

namespace cf {

// Returns the character of a byte in the NEXTSTEP character set. Returns 0 for the last two bytes,
// which have no character.
UniChar nextStepLatinToUnicode(unsigned char byte);

}  // namespace cf

#endif  // COREFOUNDATION_NEXTSTEPLATIN_H
