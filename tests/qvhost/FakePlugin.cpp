// SPDX-License-Identifier: Apache-2.0

// A plug-in that lists two services whatever it is sent, and saves nothing. It behaves as
// PluginBehaviour.h says. It can also give wrong answers.
#include <QvPlugin.h>

#include <cstdlib>
#include <cstring>

#include "qvhost/PluginBehaviour.h"

namespace {

using qv::tests::isTold;
using qv::tests::record;
using qv::tests::Request;

// A list of {id 5, address "a"} and {id 6, address "b"}.
constexpr char kTwoServices[] = "\x0a\x05\x08\x05\x12\x01\x61\x0a\x05\x08\x06\x12\x01\x62";

int answer(const void* bytes, int length, void** out, int* outLen) {
    *out = std::malloc(static_cast<std::size_t>(length));
    if (*out == nullptr) {
        return QV_ERROR_NO_MEMORY;
    }
    std::memcpy(*out, bytes, static_cast<std::size_t>(length));
    *outLen = length;
    record("answer");
    return QV_OK;
}

int handle(int command, const void* in, int inLen, void** out, int* outLen) {
    const Request request(command, in, inLen);
    if (isTold("request fails")) {
        return QV_ERROR_NO_MEMORY;
    }
    if (isTold("request fails strangely")) {
        return 77;
    }
    if (command != QV_COMMAND_GET_SERVICES) {
        return QV_OK;
    }
    if (isTold("answers garbage")) {
        return answer("\xff\xff\xff", 3, out, outLen);
    }
    if (isTold("answers and fails")) {
        static_cast<void>(answer("\xff", 1, out, outLen));
        return QV_ERROR_SERIALIZE;
    }
    if (isTold("answers length without bytes")) {
        *outLen = 3;
        return QV_OK;
    }
    if (isTold("answers negative length")) {
        static_cast<void>(answer("\x0a", 1, out, outLen));
        *outLen = -1;
        return QV_OK;
    }
    if (isTold("answers nothing")) {
        return QV_OK;
    }
    return answer(kTwoServices, sizeof kTwoServices - 1, out, outLen);
}

// The last row can be left out. The second name fills its field and has no NUL.
constexpr HandlerEntry kTable[] = {
    {QV_COMMAND_REGISTER_SERVICES, "fake register", handle},
    {QV_COMMAND_UNREGISTER_SERVICES,
     {'n', 'a', 'm', 'e', 's', ' ', 'o', 'f', ' ', 't', 'h', 'i', 'r', 't', 'y', '-', 's', 'i',
      'x', ' ', 'b', 'y', 't', 'e', 's', ' ', 'h', 'a', 'v', 'e', ' ', 'n', 'o', 'e', 'n', 'd'},
     handle},
    {QV_COMMAND_SET_DEBUG_LEVEL, "fake level", handle},
    {QV_COMMAND_GET_SERVICES, "fake get", handle},
};
constexpr int32_t kRows = sizeof kTable / sizeof kTable[0];

}  // namespace

int32_t QvPluginGetId(void) {
    return isTold("has another id") ? 7 : QV_PLUGIN_ID_NAMING_SERVICE;
}

int QvPluginInitialize(void) {
    return qv::tests::beginInitialize() ? int{QV_OK} : int{QV_ERROR_ARGUMENT};
}

void QvPluginFinalize(void) {
    qv::tests::beginFinalize();
}

int QvPluginGetHandlers(const HandlerEntry** handlers, int32_t* count, void** reserved) {
    *handlers = isTold("has no table") ? nullptr : kTable;
    *count = isTold("has no get row") ? kRows - 1 : kRows;
    *reserved = nullptr;
    return QV_OK;
}

int QvPluginFree(void* buffer) {
    if (buffer != nullptr) {
        record("free");
    }
    std::free(buffer);
    return QV_OK;
}
