// SPDX-License-Identifier: Apache-2.0

// Declares property lists, the functions that read a document into a property list, and the
// functions that write one. A property list is a tree of dictionaries, arrays, strings, data,
// numbers, booleans and dates.
//
// The functions read binary, XML and old-style documents, and write XML documents only. They try
// the three kinds in this order. The source file of each reader states at its top which documents
// the reader accepts.
//
// A document may come from anybody, so reading one has limits:
//
//   - A document whose containers are nested more than 1,024 deep is refused. In the old style the
//     limit is 512, and 513 for an empty container.
//   - A document is refused if its tree takes more than 512 MiB as an XML document. A binary
//     document can refer to its parts many times, so a small one can stand for such a tree.
//   - A binary document is refused if it has more references than bytes and more than 131,072.
//
// The writer refuses a tree that is beyond the first two limits. A tree nested deeper than 1,024 is
// not valid in any format.
#ifndef COREFOUNDATION_CFPROPERTYLIST_H
#define COREFOUNDATION_CFPROPERTYLIST_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFError.h>

CF_EXTERN_C_BEGIN

typedef CFTypeRef CFPropertyListRef;

typedef CF_ENUM(int) {
    kCFPropertyListOpenStepFormat = 1,
    kCFPropertyListXMLFormat_v1_0 = 100,
    kCFPropertyListBinaryFormat_v1_0 = 200
} CFPropertyListFormat;

// States which of the objects read from a document can be changed. Only containers can: strings and
// data stay immutable with kCFPropertyListMutableContainersAndLeaves as well.
typedef enum {
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1,
    kCFPropertyListMutableContainersAndLeaves = 2
} CFPropertyListMutabilityOptions;

// The codes of the errors that the functions below report.
enum { kCFPropertyListReadCorruptError = 3840, kCFPropertyListWriteStreamError = 3851 };

// Reads a document of any of the three kinds, and sets *errorString to null. Returns null if the
// document is none of them; *errorString is then the reason, which the caller releases, or null if
// memory ran out. `errorString` may be null.
CF_EXPORT CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef allocator,
                                                            CFDataRef data,
                                                            CFOptionFlags mutability,
                                                            CFStringRef* errorString);

// Reads a document like CFPropertyListCreateFromXMLData, and sets *format to the kind of the
// document. If the document is refused, *error is the reason, which the caller releases, or null if
// memory ran out. *error is unchanged if the document is read. `format` and `error` may be null.
CF_EXPORT CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                                         CFOptionFlags mutability,
                                                         CFPropertyListFormat* format,
                                                         CFErrorRef* error);

// Returns whether the tree can be expressed in the format: all its keys are strings, all its values
// are of the types above, and no container holds itself. In the old style, all values are
// dictionaries, arrays, strings or data.
CF_EXPORT Boolean CFPropertyListIsValid(CFPropertyListRef propertyList,
                                        CFPropertyListFormat format);

// Writes the tree as an XML document. Returns null if the tree is not valid in that format, if the
// document would take more than 512 MiB, or if memory runs out.
CF_EXPORT CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator,
                                                CFPropertyListRef propertyList);

// Writes the tree like CFPropertyListCreateXMLData. Refuses any format but XML. Ignores `options`.
// If the tree is refused, *error is the reason, which the caller releases. `error` may be null.
CF_EXPORT CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator,
                                             CFPropertyListRef propertyList,
                                             CFPropertyListFormat format, CFOptionFlags options,
                                             CFErrorRef* error);

// A reference in an archive to one of the archive's objects. An XML document expresses it as a
// dictionary with the single key "CF$UID".
typedef const struct __CFKeyedArchiverUID* CFKeyedArchiverUIDRef;

CF_EXPORT CFTypeID _CFKeyedArchiverUIDGetTypeID(void);
CF_EXPORT uint32_t _CFKeyedArchiverUIDGetValue(CFKeyedArchiverUIDRef uid);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFPROPERTYLIST_H
