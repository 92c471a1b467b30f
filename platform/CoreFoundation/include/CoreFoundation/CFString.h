// SPDX-License-Identifier: Apache-2.0

// Declares strings: immutable sequences of UTF-16 code units.
//
// A string that is created from bytes is well-formed Unicode. A string that is created from code
// units may hold a lone surrogate, which no encoding can express.
#ifndef COREFOUNDATION_CFSTRING_H
#define COREFOUNDATION_CFSTRING_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef UInt32 CFStringEncoding;

enum {
    kCFStringEncodingASCII = 0x0600,  // Bytes over 127 are read as ISO Latin 1.
    kCFStringEncodingISOLatin1 = 0x0201,
    kCFStringEncodingUTF8 = 0x08000100
};

typedef CFOptionFlags CFStringCompareFlags;

// A constant string, which is never released: CFSTR("services"). The text must be ASCII. The result
// is null if the text is not ASCII, or if memory runs out at its first use.
#define CFSTR(text) __CFStringMakeConstantString("" text "")

// Creates a string. The functions return null if the bytes are not well-formed in the encoding, or
// if the encoding is none of those above. In UTF-8 a byte-order mark at the start is left out, and
// a byte A9 where a character begins becomes a U+FFFD. `isExternalRepresentation` has no effect on
// the encodings above.
CF_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text,
                                                CFStringEncoding encoding);
CF_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes,
                                              CFIndex count, CFStringEncoding encoding,
                                              Boolean isExternalRepresentation);
CF_EXPORT CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator,
                                                   const UniChar* characters, CFIndex count);

CF_EXPORT CFTypeID CFStringGetTypeID(void);

// Lengths, indexes and ranges count code units. CFStringGetCharacterAtIndex returns 0 for an index
// outside the string. CFStringGetCharacters writes the part of the range that lies in the string.
CF_EXPORT CFIndex CFStringGetLength(CFStringRef string);
CF_EXPORT UniChar CFStringGetCharacterAtIndex(CFStringRef string, CFIndex index);
CF_EXPORT void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* characters);

// Returns the string's own bytes with a NUL behind them, if all its characters are ASCII and the
// encoding is one of those above. Returns null otherwise. The bytes exist as long as the string. A
// NUL within the string is one of the bytes.
CF_EXPORT const char* CFStringGetCStringPtr(CFStringRef string, CFStringEncoding encoding);

// Writes the string and a NUL into a buffer of `size` bytes. Returns false if they do not fit, or
// if the encoding cannot express the string; the contents of the buffer are undefined then.
CF_EXPORT Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size,
                                     CFStringEncoding encoding);

// Compares two strings by their code units. `options` must be 0.
CF_EXPORT CFComparisonResult CFStringCompare(CFStringRef one, CFStringRef other,
                                             CFStringCompareFlags options);

// Returns the constant string of a text. Only CFSTR calls this function. Equal texts yield the same
// string.
CF_EXPORT CFStringRef __CFStringMakeConstantString(const char* text);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFSTRING_H
