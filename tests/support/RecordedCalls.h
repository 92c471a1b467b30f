// Records as text the calls that the code under test makes to the platform.
//
// A test program that links this file defines the functions itself, in front of the platform's
// libraries. Each function passes the call on. The record holds the calls of a thread during an
// action, in order, written as in a source file, with a file's name in place of its path or
// descriptor:
//
//     open(namingService.conf.plist, O_WRONLY | O_CREAT | O_TRUNC, 0600)
//     lseek(namingService.conf.plist, 0, SEEK_SET)
//     write(namingService.conf.plist, 415)
//     ftruncate(namingService.conf.plist, 415)
//     fsync(namingService.conf.plist)
//     close(namingService.conf.plist)
//     CFPropertyListIsValid(dictionary, 200)
//
// The record does not contain calls inside the C library's streams.
#ifndef QV_TESTS_RECORDED_CALLS_H
#define QV_TESTS_RECORDED_CALLS_H

#include <functional>
#include <string>
#include <vector>

namespace qv::tests {

std::vector<std::string> callsDuring(const std::function<void()>& action);

}  // namespace qv::tests

#endif  // QV_TESTS_RECORDED_CALLS_H
