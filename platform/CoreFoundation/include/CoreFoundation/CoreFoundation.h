// SPDX-License-Identifier: Apache-2.0

// Provides a small CoreFoundation for platforms without the framework. The names, types, constants
// and rules are those of the framework, as far as property lists need them. A program that compiles
// with these headers compiles unchanged with the framework, unless it uses the two functions whose
// names begin with an underscore.
//
// These rules hold for all functions:
//
// Ownership. A function with Create or Copy in its name returns one reference, which the caller
// releases with CFRelease. A function with Get in its name returns no reference to release.
//
// Failure. A function that creates an object returns null if memory runs out or if its input is not
// valid, and leaves nothing behind. A container that cannot grow stays unchanged.
//
// Threads. Any thread may retain and release any object, and may read an object that no thread
// changes at that time. The program must make sure that only one thread uses a container while it
// is changed.
//
// Null. An argument that is an object must not be null, unless the comment on the function allows
// it.
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
