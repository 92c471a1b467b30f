// Property lists: trees of dictionaries, arrays, strings, data, numbers, truth values and dates,
// and their documents.
//
// Three kinds of documents are read: binary, XML and old-style, told apart by trying them in this
// order. One kind is written: XML. What exactly each reader accepts stands at the top of its source
// file.
//
// A document may come from anybody, so reading one has limits:
//   - A document whose containers are nested more than 1,024 deep is refused. In the old style the
//     limit is 512, and 513 for an empty container.
//   - A document is refused if its tree takes more than 512 MiB as an XML document. A binary
//   document
//     can refer to its parts many times, so a small one can stand for such a tree.
//   - A binary document is refused if it has more references than bytes and more than 131,072.
// The writer refuses trees beyond the first two limits. Trees nested deeper than 1,024 are valid in
// no format.
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

// Which of the objects read can be changed afterwards. Only containers ever can: the leaves stay as
// they are under the third value too.
typedef enum {
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1,
    kCFPropertyListMutableContainersAndLeaves = 2
} CFPropertyListMutabilityOptions;

// The codes of a CFErrorRef from here.
enum { kCFPropertyListReadCorruptError = 3840, kCFPropertyListWriteStreamError = 3851 };

// Reads a document of any of the three kinds. Null where it is none; *errorString, where wanted, is
// then a reason, which the caller releases, or null for want of memory; it is null where all went
// well.
CF_EXPORT CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef allocator,
                                                            CFDataRef data,
                                                            CFOptionFlags mutability,
                                                            CFStringRef* errorString);

// The same with other ways to tell: *format says which kind it was, *error why it was none, to be
// released by the caller; it is null for want of memory, and left alone where all went well. Either
// pointer may be null.
CF_EXPORT CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                                         CFOptionFlags mutability,
                                                         CFPropertyListFormat* format,
                                                         CFErrorRef* error);

// Whether the tree can be expressed in a format: all its keys are strings, all its values of the
// kinds above (of the first four in the old style), and no container holds itself.
CF_EXPORT Boolean CFPropertyListIsValid(CFPropertyListRef propertyList,
                                        CFPropertyListFormat format);

// Writes the tree as an XML document. Returns null if the tree is not valid in that format, if the
// document would take more than 512 MiB, or if memory runs out.
CF_EXPORT CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator,
                                                CFPropertyListRef propertyList);

// The same; any format but XML is refused. `options` is not used.
CF_EXPORT CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator,
                                             CFPropertyListRef propertyList,
                                             CFPropertyListFormat format, CFOptionFlags options,
                                             CFErrorRef* error);

// The object that stands for a dictionary with the single key "CF$UID": an archive's reference to
// one of its objects.
typedef const struct __CFKeyedArchiverUID* CFKeyedArchiverUIDRef;

CF_EXPORT CFTypeID _CFKeyedArchiverUIDGetTypeID(void);
CF_EXPORT uint32_t _CFKeyedArchiverUIDGetValue(CFKeyedArchiverUIDRef uid);

CF_EXTERN_C_END

#endif  // COREFOUNDATION_CFPROPERTYLIST_H
