// What every plug-in of the product shares: its diagnostic log, the set-debug-level command, and
// the callback that stands for none.
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
// logs. Nothing is formatted, and no argument evaluated, when the level is not enabled.
#define QV_LOG(level, ...)                                            \
    do {                                                              \
        if (LorxIsEnableLog(g_debugLogContext, (level)) != 0) {       \
            LorxWriteDbgLog(g_debugLogContext, (level), __VA_ARGS__); \
        }                                                             \
    } while (false)

// The handler of QV_COMMAND_SET_DEBUG_LEVEL: takes a serialised DebugOption and sets the threshold
// of the plug-in's log and of the utility library. Returns QV_ERROR_ARGUMENT for no input and for a
// level above 7, a negative one included. Works whether or not a log is open; takes no lock.
int SetDebugLevel(int command, const void* in, int inLen, void** out, int* outLen);

// The notification callback that does nothing.
extern "C" void QvPluginNullNotify(void);

#endif  // QV_GENERAL_H
