// SPDX-License-Identifier: Apache-2.0

// Provides another log library. It exports the four functions of the product and not our own
// LorxOpenDbgLog(). It writes every record to standard error, even without an open log.

#include <cstdarg>
#include <cstdio>

#define OTHER_EXPORT extern "C" __attribute__((visibility("default")))

OTHER_EXPORT int LorxIsEnableLog(void* /*handle*/, int /*level*/) {
    return 1;
}

OTHER_EXPORT void LorxWriteDbgLog(void* /*handle*/, int level, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::fprintf(stderr, "other log, level %d: ", level);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    va_end(arguments);
}

OTHER_EXPORT void LorxSetDbgLogLevel(void* /*handle*/, int /*level*/) {}

OTHER_EXPORT void LorxReleaseDbgLog(void* /*handle*/) {}
