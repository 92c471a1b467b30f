// SPDX-License-Identifier: Apache-2.0

#include "namingService/ModelledPlugin.h"

#include <QvUtil.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

#include "gen_lite/WireFormat.h"
#include "support/Require.h"

namespace qv::fuzz {
namespace {

CommandHandler handlerOf(std::uint32_t command) {
    const HandlerEntry* rows = nullptr;
    std::int32_t count = 0;
    void* reserved = &count;
    require(
        QvPluginGetHandlers(&rows, &count, &reserved) == QV_OK && count == 4 && reserved == nullptr,
        "there is no command table");
    const HandlerEntry* row = rows;
    while (row != rows + count && row->command != command) {
        ++row;
    }
    require(row != rows + count, "the table lacks a command");
    return row->handler;
}

// Calls a command that gives no answer, and returns its result. The command code of the call does
// not matter: one handler logs it, and the others ignore it.
int call(std::uint32_t command, const void* in, int length) {
    char place = 0;
    void* out = &place;
    int outLength = -12345;
    const int result = handlerOf(command)(length, in, length, &out, &outLength);
    require(out == &place && outLength == -12345, "a command that does not answer has answered");
    return result;
}

// Copies the request to heap memory of its exact size, so that a sanitizer notices a read past its
// end.
int call(std::uint32_t command, std::string_view request) {
    const std::unique_ptr<char[]> bytes(new char[request.size()]);
    if (!request.empty()) {
        std::memcpy(bytes.get(), request.data(), request.size());
    }
    return call(command, bytes.get(), static_cast<int>(request.size()));
}

std::string answer() {
    void* out = &out;
    int length = -1;
    require(handlerOf(QV_COMMAND_GET_SERVICES)(0, nullptr, 0, &out, &length) == QV_OK,
            "the services cannot be listed");
    require(length >= 0 && (out == nullptr) == (length == 0), "an answer has a wrong length");
    std::string bytes(static_cast<const char*>(out), static_cast<std::size_t>(length));
    require(QvPluginFree(out) == QV_OK, "an answer cannot be freed");
    return bytes;
}

}  // namespace

void ModelledPlugin::initialize() {
    require(QvPluginInitialize() == QV_OK, "the plug-in cannot be initialised");
    if (!isInitialized_) {
        isInitialized_ = true;
        files.model.initialize();
    }
}

void ModelledPlugin::finalize() {
    QvPluginFinalize();
    isInitialized_ = false;
    files.model.finalize();
}

void ModelledPlugin::registerServices(std::string_view request) {
    require(call(QV_COMMAND_REGISTER_SERVICES, request) == QV_OK, "a registration is refused");
    files.model.registerServices(servicesIn(request));
}

void ModelledPlugin::unregisterServices(std::string_view request) {
    require(call(QV_COMMAND_UNREGISTER_SERVICES, request) == QV_OK, "a removal is refused");
    for (const StoredService& service : servicesIn(request)) {
        files.model.memory.erase(service.id.value_or(0));
    }
}

void ModelledPlugin::setDebugLevel(std::string_view request) {
    const int before = QvGetUtilDebugLevel();
    const std::int32_t level = debugLevelIn(request);
    const bool isValid = !request.empty() && level >= 0 && level <= 7;
    require(call(QV_COMMAND_SET_DEBUG_LEVEL, request) == (isValid ? QV_OK : QV_ERROR_ARGUMENT),
            "a level is accepted or refused wrongly");
    require(QvGetUtilDebugLevel() == (isValid ? level : before), "the level is wrong");
}

void ModelledPlugin::callWithoutArguments() {
    const char byte = '\x0a';
    const HandlerEntry* rows = nullptr;
    std::int32_t count = -1;
    void* reserved = &count;
    require(QvPluginGetHandlers(nullptr, &count, &reserved) == QV_ERROR_ARGUMENT &&
                QvPluginGetHandlers(&rows, nullptr, &reserved) == QV_ERROR_ARGUMENT &&
                QvPluginGetHandlers(&rows, &count, nullptr) == QV_ERROR_ARGUMENT,
            "a null pointer for the command table is accepted");
    require(rows == nullptr && count == -1 && reserved == &count,
            "a refused call has changed its arguments");
    require(QvPluginFree(nullptr) == QV_OK, "null cannot be freed");
    require(QvPluginGetId() == QV_PLUGIN_ID_NAMING_SERVICE, "the plug-in has another identifier");
    QvPluginSetNotificationCallback(nullptr);

    require(call(QV_COMMAND_SET_DEBUG_LEVEL, nullptr, 1) == QV_ERROR_ARGUMENT &&
                call(QV_COMMAND_SET_DEBUG_LEVEL, &byte, 0) == QV_ERROR_ARGUMENT,
            "a level without a request is accepted");
    // The parser decodes nothing from a negative length.
    require(call(QV_COMMAND_SET_DEBUG_LEVEL, &byte, -1) == QV_OK && QvGetUtilDebugLevel() == 0,
            "a negative length does not set level 0");

    if (!isInitialized_) {
        return;
    }
    for (const std::uint32_t command :
         {QV_COMMAND_REGISTER_SERVICES, QV_COMMAND_UNREGISTER_SERVICES}) {
        require(call(command, nullptr, 0) == QV_ERROR_ARGUMENT &&
                    call(command, nullptr, 1) == QV_ERROR_ARGUMENT &&
                    call(command, &byte, -1) == QV_ERROR_ARGUMENT &&
                    call(command, &byte, INT_MIN) == QV_ERROR_ARGUMENT &&
                    call(command, &byte, 0) == QV_OK,
                "a request is accepted or refused wrongly");
    }
    void* out = &out;
    int length = -1;
    const CommandHandler get = handlerOf(QV_COMMAND_GET_SERVICES);
    require(get(0, nullptr, 0, nullptr, &length) == QV_ERROR_ARGUMENT &&
                get(0, nullptr, 0, &out, nullptr) == QV_ERROR_ARGUMENT && out == &out &&
                length == -1,
            "a null pointer for the answer is accepted");
}

void ModelledPlugin::check() const {
    files.check();
    if (!isInitialized_) {
        return;
    }
    std::string expected;
    for (const auto& [id, service] : files.model.memory) {
        expected += encodedService(id, service.address.value_or(""));
    }
    require(answer() == expected, "the listing differs from the model");
}

}  // namespace qv::fuzz
