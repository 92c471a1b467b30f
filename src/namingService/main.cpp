// SPDX-License-Identifier: Apache-2.0

// The boundary between the host and the plug-in: the exported functions, the command table, and the
// handlers of the service commands.

#include <cstdlib>
#include <iterator>

#include "QvGeneral.h"
#include "QvPlugin.h"
#include "QvUtil.h"
#include "namingService.h"
#include "namingService.pb.h"

using qor::kevra::kLogDebug;
using qor::kevra::kLogInfo;
using qor::kevra::kLogWarning;
using qor::kevra::NamingService;
using qor::kevra::NullMutex;
using qor::kevra::QvConfig;
using qor::kevra::ServiceInfoArray;

void* g_debugLogContext = nullptr;
QvConfig<NullMutex>* g_cfg = nullptr;

namespace {

constexpr const char* kConfigurationFile = "namingService.conf.plist";
constexpr std::size_t kLongestPath = 2048;

NamingService* g_namingService = nullptr;

// The callback that the host gave last, never null. The plug-in keeps the callback and does not
// call it. The attribute stops the compiler from removing a variable that nothing here reads.
[[gnu::used]] QvNotificationCallback g_notify = QvPluginNullNotify;

// Executes a registration or an unregistration. They differ in the registry's operation and in the
// name that they log.
int changeServices(const char* name, void (NamingService::*change)(const ServiceInfoArray&),
                   const void* in, int inLen) {
    QV_LOG(kLogDebug, "%s in", name);
    if (in == nullptr || inLen < 0) {
        return QV_ERROR_ARGUMENT;
    }
    ServiceInfoArray request;
    // The result is ignored: the services in front of a fault are registered (compatibility C1).
    static_cast<void>(request.ParseFromArray(in, inLen));
    if (!request.IsInitialized()) {
        QV_LOG(kLogWarning, "%s fail to unserialize pb from bytes", name);
        return QV_ERROR_ARGUMENT;
    }
    (g_namingService->*change)(request);
    return QV_OK;
}

int registerServices(int /*command*/, const void* in, int inLen, void** /*out*/, int* /*outLen*/) {
    return changeServices("registerServices", &NamingService::registerServices, in, inLen);
}

int unregisterServices(int /*command*/, const void* in, int inLen, void** /*out*/,
                       int* /*outLen*/) {
    return changeServices("unregisterServices", &NamingService::unregisterServices, in, inLen);
}

int getServices(int /*command*/, const void* /*in*/, int /*inLen*/, void** out, int* outLen) {
    QV_LOG(kLogDebug, "%s in", "getServices");
    if (out == nullptr || outLen == nullptr) {
        return QV_ERROR_ARGUMENT;
    }
    // The registry's lock is free again when this returns. A host that is slow to give memory, or a
    // large answer, keeps no other command waiting.
    ServiceInfoArray answer;
    g_namingService->getServices(answer);
    const int size = answer.ByteSize();
    // The length stays when no memory is left for the answer (compatibility C5).
    *outLen = size;
    if (size == 0) {
        *out = nullptr;
        return QV_OK;
    }
    *out = std::malloc(static_cast<std::size_t>(size));
    if (*out == nullptr) {
        QV_LOG(kLogWarning, "%s malloc error, no resource.", "getServices");
        return QV_ERROR_NO_MEMORY;
    }
    if (!answer.SerializeToArray(*out, size)) {
        // The host frees the buffer like a good answer (compatibility C4).
        QV_LOG(kLogWarning, "%s serialize error", "getServices");
        return QV_ERROR_SERIALIZE;
    }
    return QV_OK;
}

const HandlerEntry handlerArr[] = {
    {QV_COMMAND_REGISTER_SERVICES, "register services", registerServices},
    {QV_COMMAND_UNREGISTER_SERVICES, "unregister services", unregisterServices},
    {QV_COMMAND_GET_SERVICES, "get services", getServices},
    {QV_COMMAND_SET_DEBUG_LEVEL, "set debug level", SetDebugLevel},
};

}  // namespace

int32_t QvPluginGetId(void) {
    return QV_PLUGIN_ID_NAMING_SERVICE;
}

int QvPluginInitialize(void) {
    if (g_debugLogContext == nullptr) {
        QvInitDebugByConfig(&g_debugLogContext, kConfigurationFile, "namingService",
                            "/var/log/Vornak/LorxCore/namingService.log");
    }
    QV_LOG(kLogInfo, "%s enter", "QvPluginInitialize");
    if (g_cfg == nullptr) {
        char path[kLongestPath] = {};
        // A path that is too long gives null, and the configuration stays unloaded.
        g_cfg = new QvConfig<NullMutex>(QvGetFilePath(path, sizeof path, kConfigurationFile));
    }
    if (g_namingService == nullptr) {
        g_namingService = new NamingService;
    }
    return QV_OK;
}

void QvPluginFinalize(void) {
    QV_LOG(kLogInfo, "%s enter", "QvPluginFinalize");
    // The log goes first, also when none is open. Nothing logs after this point (compatibility C9).
    LorxReleaseDbgLog(g_debugLogContext);
    g_debugLogContext = nullptr;
    delete g_namingService;
    g_namingService = nullptr;
    delete g_cfg;
    g_cfg = nullptr;
}

int QvPluginGetHandlers(const HandlerEntry** handlers, int32_t* count, void** reserved) {
    if (handlers == nullptr || count == nullptr || reserved == nullptr) {
        return QV_ERROR_ARGUMENT;
    }
    *handlers = handlerArr;
    *count = static_cast<int32_t>(std::size(handlerArr));
    *reserved = nullptr;
    return QV_OK;
}

int QvPluginFree(void* buffer) {
    std::free(buffer);
    return QV_OK;
}

void QvPluginSetNotificationCallback(QvNotificationCallback callback) {
    g_notify = callback != nullptr ? callback : QvPluginNullNotify;
}
