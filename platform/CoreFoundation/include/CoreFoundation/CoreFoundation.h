// A small CoreFoundation for platforms without the framework: the same names, types, constants and
// rules, as much of them as property lists need. A program compiled against it compiles unchanged
// against the framework, unless it uses the two functions that begin with an underscore.
//
// Rules that hold throughout:
//
// Ownership. A function with Create or Copy in its name hands its caller one reference, to be given
// back with CFRelease; one with Get in its name hands out no reference.
//
// Failure. What cannot be made, for want of memory or because its input will not do, is null, and
// nothing of it stays behind. A container that cannot grow stays as it was.
//
// Threads. Retaining and releasing are safe from any thread, and so is reading what nobody changes
// at that time. Changing a container is its user's to serialise.
//
// Null. Where an object is wanted, null is not allowed, unless the function says otherwise.
#ifndef COREFOUNDATION_COREFOUNDATION_H
#define COREFOUNDATION_COREFOUNDATION_H

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFPropertyList.h>
#include <CoreFoundation/CFSet.h>
#include <CoreFoundation/CFString.h>

#endif  // COREFOUNDATION_COREFOUNDATION_H
