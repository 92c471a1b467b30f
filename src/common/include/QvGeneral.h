// SPDX-License-Identifier: Apache-2.0

// What every plug-in of the product shares: the diagnostic log, the set-debug-level command, and
// the notification callback that does nothing.
#ifndef QV_GENERAL_H
#define QV_GENERAL_H

#include "QvLog.h"
#include "QvPlugin.h"

// The handle of the plug-in's diagnostic log; null while none is open. Each plug-in defines it.
extern void* g_debugLogContext;

namespace qor::kevra {

// The log levels that plug-ins use, of syslog's eight.
enum LogLevel { kLogError = 3, kLogWarning = 4, kLogInfo = 6, kLogDebug = 7 };

}  // namespace qor::kevra

// Writes one line to the plug-in's log. The format's first %s is the name of the function that
// logs. If the level is not enabled, nothing is formatted and no argument is evaluated.
#define QV_LOG(level, ...)                                            \
    do {                                                              \
        if (LorxIsEnableLog(g_debugLogContext, (level)) != 0) {       \
            LorxWriteDbgLog(g_debugLogContext, (level), __VA_ARGS__); \
        }                                                             \
    } while (false)

// Handles QV_COMMAND_SET_DEBUG_LEVEL: reads a serialised DebugOption and sets the threshold of the
// plug-in's log and of the utility library. Returns QV_ERROR_ARGUMENT if there is no input, or if
// the level is negative or above 7. Works without an open log. Takes no lock.
int SetDebugLevel(int command, const void* in, int inLen, void** out, int* outLen);

// Does nothing. It is the notification callback of a host that has set none.
extern "C" void QvPluginNullNotify(void);

#endif  // QV_GENERAL_H
