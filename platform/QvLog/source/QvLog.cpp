// SPDX-License-Identifier: Apache-2.0

#include "QvLog.h"

#include <cstdarg>
#include <new>

#include "DebugLog.h"
#include "QvSystem/Cancellation.h"

using qv::log::DebugLog;

extern "C" {

void* LorxOpenDbgLog(const char* path, const char* module, int level) {
    if (path == nullptr) {
        return nullptr;
    }
    const qv::system::CancellationGuard guard;
    try {
        return new DebugLog(path, module != nullptr ? module : "", level);
    } catch (...) {
        return nullptr;
    }
}

int LorxIsEnableLog(void* handle, int level) {
    return handle != nullptr && static_cast<const DebugLog*>(handle)->isEnabled(level) ? 1 : 0;
}

void LorxWriteDbgLog(void* handle, int level, const char* format, ...) {
    if (handle == nullptr) {
        return;
    }
    const qv::system::CancellationGuard guard;
    std::va_list arguments;
    va_start(arguments, format);
    static_cast<DebugLog*>(handle)->write(level, format, arguments);
    va_end(arguments);
}

void LorxSetDbgLogLevel(void* handle, int level) {
    if (handle != nullptr) {
        static_cast<DebugLog*>(handle)->setLevel(level);
    }
}

void LorxReleaseDbgLog(void* handle) {
    const qv::system::CancellationGuard guard;
    delete static_cast<DebugLog*>(handle);
}

}  // extern "C"
