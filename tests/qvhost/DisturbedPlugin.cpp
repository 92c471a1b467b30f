// SPDX-License-Identifier: Apache-2.0

// Hands every call to the real plug-in, and disturbs it on the way as PluginBehaviour.h says.
#include <QvPlugin.h>
#include <QvUtil.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "qvhost/PluginBehaviour.h"

namespace {

using qv::tests::mustBe;

void* library() {
    static void* const handle = dlopen(QV_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
    mustBe(handle != nullptr);
    return handle;
}

template <class Function>
Function* real(const char* name) {
    void* const symbol = dlsym(library(), name);
    mustBe(symbol != nullptr);
    return reinterpret_cast<Function*>(symbol);
}

std::vector<HandlerEntry> realTable() {
    const HandlerEntry* rows = nullptr;
    int32_t count = 0;
    void* reserved = nullptr;
    const int result =
        real<decltype(QvPluginGetHandlers)>("QvPluginGetHandlers")(&rows, &count, &reserved);
    mustBe(result == QV_OK);
    return {rows, rows + count};
}

int handle(int command, const void* in, int inLen, void** out, int* outLen) {
    const qv::tests::Request request(command, in, inLen);
    if (qv::tests::isTold("request fails")) {
        return QV_ERROR_NO_MEMORY;
    }
    static const std::vector<HandlerEntry> table = realTable();
    const auto row = std::find_if(table.begin(), table.end(), [command](const HandlerEntry& entry) {
        return entry.command == static_cast<uint32_t>(command);
    });
    mustBe(row != table.end());
    return row->handler(command, in, inLen, out, outLen);
}

std::vector<HandlerEntry> disturbedTable() {
    std::vector<HandlerEntry> table = realTable();
    for (HandlerEntry& entry : table) {
        entry.handler = handle;
    }
    return table;
}

}  // namespace

int32_t QvPluginGetId(void) {
    return real<decltype(QvPluginGetId)>("QvPluginGetId")();
}

int QvPluginInitialize(void) {
    return qv::tests::beginInitialize() ? real<decltype(QvPluginInitialize)>("QvPluginInitialize")()
                                        : int{QV_ERROR_ARGUMENT};
}

void QvPluginFinalize(void) {
    real<decltype(QvPluginFinalize)>("QvPluginFinalize")();
    qv::tests::beginFinalize();
}

int QvPluginGetHandlers(const HandlerEntry** handlers, int32_t* count, void** reserved) {
    static const std::vector<HandlerEntry> table = disturbedTable();
    *handlers = table.data();
    *count = static_cast<int32_t>(table.size());
    *reserved = nullptr;
    return QV_OK;
}

int QvPluginFree(void* buffer) {
    return real<decltype(QvPluginFree)>("QvPluginFree")(buffer);
}

// A host asks the plug-in's own utility library.
char* QvGetFilePath(char* buffer, int size, const char* fileName) {
    return real<decltype(QvGetFilePath)>("QvGetFilePath")(buffer, size, fileName);
}
