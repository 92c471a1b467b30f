// The calls that the code under test makes of the platform, as text.
//
// A test program that links this file defines the functions itself, in front of the platform's
// libraries; each passes the call on. It records the calls that the thread makes during an action,
// in order, written the way they would stand in a source file, with a file's name for its path or
// its descriptor:
//
//     open(namingService.conf.plist, O_WRONLY | O_CREAT | O_TRUNC, 0600)
//     lseek(namingService.conf.plist, 0, SEEK_SET)
//     write(namingService.conf.plist, 415)
//     ftruncate(namingService.conf.plist, 415)
//     fsync(namingService.conf.plist)
//     close(namingService.conf.plist)
//     CFPropertyListIsValid(dictionary, 200)
//
// Reading and writing through the C library's streams is not recorded.
#ifndef QV_TESTS_RECORDED_CALLS_H
#define QV_TESTS_RECORDED_CALLS_H

#include <functional>
#include <string>
#include <vector>

namespace qv::tests {

std::vector<std::string> callsDuring(const std::function<void()>& action);

}  // namespace qv::tests

#endif  // QV_TESTS_RECORDED_CALLS_H
