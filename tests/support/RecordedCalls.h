// SPDX-License-Identifier: Apache-2.0

// Records as text the calls that the code under test makes to the platform.
//
// A test program that links this file defines the functions itself, in front of the platform's
// libraries. Each function records the calls that the thread makes during an action, in order, and
// passes them on. A call is written the way it would stand in a source file. A path, a descriptor
// and a stream are written as the name of their file, with "backup/" in front if the file is in a
// directory of this name:
//
//     fopen(namingService.conf.plist, r)
//     ftell(namingService.conf.plist)
//     rewind(namingService.conf.plist)
//     fread(namingService.conf.plist, 415)
//     fwrite(backup/namingService.conf.plist, 415)
//     fflush(backup/namingService.conf.plist)
//     open(namingService.conf.plist, O_WRONLY | O_CREAT | O_TRUNC, 0600)
//     lseek(namingService.conf.plist, 0, SEEK_SET)
//     write(namingService.conf.plist, 415)
//     ftruncate(namingService.conf.plist, 415)
//     fsync(namingService.conf.plist)
//     close(namingService.conf.plist)
//     mkdir(backup, 0600)
//     CFDataCreateWithBytesNoCopy(415)
//     CFPropertyListCreateFromXMLData(1)
//     CFPropertyListIsValid(dictionary, 200)
//     CFStringCreateWithCString(Address, UTF-8)
//     CFDictionaryCreateMutable()
//     CFNumberCreate(3)
//     CFArrayCreate(2)
//     CFStringGetCStringPtr(UTF-8)
//     CFStringGetCString(4, UTF-8)
//     CFPropertyListCreateXMLData()
#ifndef QV_TESTS_RECORDED_CALLS_H
#define QV_TESTS_RECORDED_CALLS_H

#include <functional>
#include <string>
#include <vector>

namespace qv::tests {

// The result that a call gives, which is then not passed on. The call is written as it is recorded.
// A function that returns a pointer gives null.
struct GivenResult {
    std::string call;
    long result = 0;
    int error = 0;
};

// Executes the action. The first call that the given result is for gets it.
std::vector<std::string> callsDuring(const std::function<void()>& action,
                                     const GivenResult& given = {});

}  // namespace qv::tests

#endif  // QV_TESTS_RECORDED_CALLS_H
