// Strings: immutable sequences of UTF-16 code units.
//
// What is made from bytes is well-formed Unicode. Code units taken as they are may hold a lone
// surrogate, which no encoding can express.
#ifndef COREFOUNDATION_CFSTRING_H
#define COREFOUNDATION_CFSTRING_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef UInt32 CFStringEncoding;

enum {
    kCFStringEncodingASCII = 0x0600,  // bytes over 127 are read as ISO Latin 1
    kCFStringEncodingISOLatin1 = 0x0201,
    kCFStringEncodingUTF8 = 0x08000100
};

typedef CFOptionFlags CFStringCompareFlags;

// A constant string, which is never released: CFSTR("services"). The text is ASCII. Null only where
// there is no memory for its first use.
#define CFSTR(text) __CFStringMakeConstantString("" text "")

// Bytes that are not well-formed in the encoding, and encodings other than those above, give null.
// In UTF-8 one byte-order mark at the start is left out, and a byte A9 where a character should
// begin makes a U+FFFD. `isExternalRepresentation` matters only for encodings that are not offered
// here.
CF_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text,
                                                CFStringEncoding encoding);
CF_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes,
                                              CFIndex count, CFStringEncoding encoding,
                                              Boolean isExternalRepresentation);
CF_EXPORT CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator,
                                                   const UniChar* characters, CFIndex count);

CF_EXPORT CFTypeID CFStringGetTypeID(void);

// In code units. An index outside the string gives 0; of a range, what lies in the string is
// written.
CF_EXPORT CFIndex CFStringGetLength(CFStringRef string);
CF_EXPORT UniChar CFStringGetCharacterAtIndex(CFStringRef string, CFIndex index);
CF_EXPORT void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* characters);

// The string's own bytes, with a NUL after them, as long as the string lives: exactly where all its
// characters are ASCII. Null otherwise. A NUL of the string's own is there like any other
// character.
CF_EXPORT const char* CFStringGetCStringPtr(CFStringRef string, CFStringEncoding encoding);

// Writes the string and a NUL into a buffer of `size` bytes. False where they do not fit or where
// the encoding cannot express them; what the buffer holds is then undefined.
CF_EXPORT Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size,
                                     CFStringEncoding encoding);

// By code units. No options are offered: the argument has to be 0.
CF_EXPORT CFComparisonResult CFStringCompare(CFStringRef one, CFStringRef other,
                                             CFStringCompareFlags options);

// For CFSTR only. Equal texts give the same string.
CF_EXPORT CFStringRef __CFStringMakeConstantString(const char* text);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFSTRING_H
