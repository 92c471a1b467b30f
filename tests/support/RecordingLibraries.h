// SPDX-License-Identifier: Apache-2.0

// Replaces the log and utility libraries with functions that record their calls.
//
// A test program that links this file defines the seven functions itself. The dynamic linker gives
// the plug-in the program's functions in place of those of the libraries. The record holds one line
// for each call, in order, written as in a source file:
//
//     QvInitDebugByConfig("namingService.conf.plist", "namingService", "/var/log/...")
//     LorxIsEnableLog(7)
//     LorxWriteDbgLog(7, "%s in", "registerServices in")
//
// The last argument of a write is the formatted record. If a call does not pass the handle that was
// given out, its first argument is "null" or "stranger". The functions are not thread-safe.
#ifndef QV_TESTS_RECORDING_LIBRARIES_H
#define QV_TESTS_RECORDING_LIBRARIES_H

#include <string>
#include <vector>

namespace qv::tests {

// Forgets all calls and enables levels up to `threshold`.
void startRecording(int threshold = 7);

// Returns the calls since startRecording(), without those of LorxIsEnableLog(). Checks that each
// write directly follows the question whether its level is enabled.
std::vector<std::string> recordedCalls();

// Returns all calls since startRecording().
std::vector<std::string> allRecordedCalls();

// Sets whether QvInitDebugByConfig() opens a log. It does from the start.
void setLogCanBeOpened(bool canBeOpened);

// Sets the result of QvGetFilePath(), which may be null. From the start, and with "", the result is
// a path in a directory that does not exist.
void setFilePath(const char* path);

}  // namespace qv::tests

#endif  // QV_TESTS_RECORDING_LIBRARIES_H
