// Recording stand-ins for the log and utility libraries.
//
// A test program that links this file defines the seven functions itself; the dynamic linker gives
// the program's definitions to the plug-in before those of the libraries. Every call is kept as one
// line of text, in order, written the way it would stand in a source file:
//
//     QvInitDebugByConfig("namingService.conf.plist", "namingService", "/var/log/...")
//     LorxIsEnableLog(7)
//     LorxWriteDbgLog(7, "%s in", "registerServices in")
//
// The last argument of a write is the record as formatted. A call that carries another handle than
// the one given out has it as its first argument: "null" or "stranger". Not thread-safe.
#ifndef QV_TESTS_RECORDING_LIBRARIES_H
#define QV_TESTS_RECORDING_LIBRARIES_H

#include <string>
#include <vector>

namespace qv::tests {

// Forgets all calls and enables levels up to `threshold`.
void startRecording(int threshold = 7);

// The calls since then, without the LorxIsEnableLog() that were answered with yes: each of these
// must be followed by its write, which is checked as they are taken.
std::vector<std::string> recordedCalls();

// The same with every LorxIsEnableLog().
std::vector<std::string> allRecordedCalls();

// Whether QvInitDebugByConfig() opens a log; it does unless told otherwise.
void setLogCanBeOpened(bool canBeOpened);

// What QvGetFilePath() gives, which may be null; a file of a directory that does not exist unless
// told otherwise, and again with "".
void setFilePath(const char* path);

}  // namespace qv::tests

#endif  // QV_TESTS_RECORDING_LIBRARIES_H
