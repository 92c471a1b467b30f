// SPDX-License-Identifier: Apache-2.0

#include "support/LoadedPlugin.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "namingService.pb.h"
#include "support/ScratchDirectories.h"

namespace qv::tests {
namespace {

// A pointer to this variable shows that a handler has left its answer arguments alone.
char untouched;
constexpr int kUntouchedLength = -12345;

[[noreturn]] void fail(const char* what, const char* why) {
    std::fprintf(stderr, "%s: %s\n", what, why);
    std::abort();
}

template <class Function>
Function find(void* library, const char* name) {
    void* const symbol = dlsym(library, name);
    if (symbol == nullptr) {
        fail(name, dlerror());
    }
    return reinterpret_cast<Function>(symbol);
}

void* load() {
    static const ScratchDirectories scratch;
    void* const library = dlopen(QV_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        fail("cannot load the plug-in", dlerror());
    }
    return library;
}

}  // namespace

std::string encode(const Services& services) {
    qor::kevra::ServiceInfoArray array;
    for (const auto& [id, address] : services) {
        auto* service = array.add_services();
        service->set_id(id);
        service->set_address(address);
    }
    return array.SerializeAsString();
}

Services decode(const std::string& bytes) {
    qor::kevra::ServiceInfoArray array;
    if (!array.ParseFromString(bytes)) {
        fail("an answer", "is not a ServiceInfoArray");
    }
    Services services;
    for (const auto& service : array.services()) {
        services.emplace_back(service.id(), service.address());
    }
    return services;
}

LoadedPlugin::LoadedPlugin() : library_(load()) {
    getId = find<decltype(getId)>(library_, "QvPluginGetId");
    initialize = find<decltype(initialize)>(library_, "QvPluginInitialize");
    finalize = find<decltype(finalize)>(library_, "QvPluginFinalize");
    getHandlers = find<decltype(getHandlers)>(library_, "QvPluginGetHandlers");
    free = find<decltype(free)>(library_, "QvPluginFree");
    setNotificationCallback =
        find<decltype(setNotificationCallback)>(library_, "QvPluginSetNotificationCallback");
}

LoadedPlugin::~LoadedPlugin() {
    dlclose(library_);
}

std::vector<HandlerEntry> LoadedPlugin::handlers() const {
    const HandlerEntry* rows = nullptr;
    std::int32_t count = 0;
    void* reserved = nullptr;
    if (getHandlers(&rows, &count, &reserved) != QV_OK) {
        fail("QvPluginGetHandlers", "refused valid pointers");
    }
    return {rows, rows + count};
}

CommandHandler LoadedPlugin::handler(std::uint32_t command) const {
    for (const HandlerEntry& row : handlers()) {
        if (row.command == command) {
            return row.handler;
        }
    }
    fail("the command table", "lacks a command");
}

Answer LoadedPlugin::execute(std::uint32_t command, const std::string& in) const {
    void* out = &untouched;
    int outLength = kUntouchedLength;
    Answer answer;
    answer.result = handler(command)(static_cast<int>(command), in.data(),
                                     static_cast<int>(in.size()), &out, &outLength);
    if (out == &untouched && outLength == kUntouchedLength) {
        return answer;
    }
    answer.answered = true;
    if (out != nullptr) {
        answer.bytes.assign(static_cast<const char*>(out), static_cast<std::size_t>(outLength));
        free(out);
    }
    return answer;
}

int LoadedPlugin::registerServices(const Services& services) const {
    return execute(QV_COMMAND_REGISTER_SERVICES, encode(services)).result;
}

int LoadedPlugin::unregisterServices(const std::vector<std::int32_t>& ids) const {
    Services services;
    for (const std::int32_t id : ids) {
        services.emplace_back(id, "");
    }
    return execute(QV_COMMAND_UNREGISTER_SERVICES, encode(services)).result;
}

Services LoadedPlugin::getServices() const {
    return decode(execute(QV_COMMAND_GET_SERVICES, "").bytes);
}

}  // namespace qv::tests
