// SPDX-License-Identifier: Apache-2.0

#include <QvSystem/Directories.h>
#include <QvSystem/Environment.h>
#include <sys/types.h>

#include <string>
#include <system_error>

#include "ConfiguredDebugLevel.h"
#include "QvLog.h"
#include "QvSystem/Cancellation.h"
#include "QvUtil.h"

// The one function here that is not the product's own. Another log library in the place of ours may
// lack it; there is no log to open then.
#pragma weak LorxOpenDbgLog

namespace {

constexpr mode_t directoryMode = 0750;

std::string logFilePath(const std::string& logPath) {
    const char* const directory = qv::system::environmentValue("QV_LOG_DIR");
    if (directory == nullptr) {
        return logPath;
    }
    const std::string::size_type slash = logPath.rfind('/');
    const std::string baseName = slash == std::string::npos ? logPath : logPath.substr(slash + 1);
    return std::string(directory) + '/' + baseName;
}

// Reports nothing: if a directory is missing afterwards, the file in it cannot be opened.
void makeDirectoryOf(const std::string& path) {
    try {
        qv::system::makeDirectories(qv::system::directoryOf(path), directoryMode);
    } catch (const std::system_error&) {
        return;
    }
}

}  // namespace

int QvInitDebugByConfig(void** handle, const char* configName, const char* module,
                        const char* logPath) {
    if (handle == nullptr) {
        return -1;
    }
    *handle = nullptr;
    if (logPath == nullptr || LorxOpenDbgLog == nullptr) {
        return -1;
    }
    const qv::system::CancellationGuard guard;
    try {
        const std::string path = logFilePath(logPath);
        makeDirectoryOf(path);
        *handle = LorxOpenDbgLog(path.c_str(), module, qv::util::configuredDebugLevel(configName));
    } catch (...) {
        return -1;
    }
    return *handle != nullptr ? 0 : -1;
}
