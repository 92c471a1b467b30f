// The 8-bit characters that the octal escapes of old-style property lists stand for.
#ifndef COREFOUNDATION_NEXTSTEPLATIN_H
#define COREFOUNDATION_NEXTSTEPLATIN_H

#include <CoreFoundation/CFBase.h>

namespace cf {

// The character of a byte in the NEXTSTEP character set; 0 for the two bytes at its end that have
// none.
UniChar nextStepLatinToUnicode(unsigned char byte);

}  // namespace cf

#endif  // COREFOUNDATION_NEXTSTEPLATIN_H
