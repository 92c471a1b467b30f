// SPDX-License-Identifier: Apache-2.0

#include "QvGeneral.h"

#include <cstdint>

#include "KevraCommonMsg.pb.h"
#include "QvUtil.h"

using qor::kevra::DebugOption;
using qor::kevra::kLogError;

namespace {

constexpr std::uint32_t kLevelCount = 8;

}  // namespace

int SetDebugLevel(int command, const void* in, int inLen, void** /*out*/, int* /*outLen*/) {
    // A negative length is not refused (compatibility C2). The parser decodes nothing then, and the
    // level is 0.
    if (in == nullptr || inLen == 0) {
        QV_LOG(kLogError, "%s cmd is %d, in is %p, inLen is %d", "SetDebugLevel", command, in,
               inLen);
        return QV_ERROR_ARGUMENT;
    }
    DebugOption option;
    // The level counts even if the rest of the request is malformed or missing (compatibility C3).
    static_cast<void>(option.ParseFromArray(in, inLen));
    const int level = option.debug_level();
    if (static_cast<std::uint32_t>(level) >= kLevelCount) {
        QV_LOG(kLogError, "%s invalid level %d", "SetDebugLevel", level);
        return QV_ERROR_ARGUMENT;
    }
    LorxSetDbgLogLevel(g_debugLogContext, level);
    QvSetUtilDebugLevel(level);
    return QV_OK;
}

void QvPluginNullNotify(void) {}
