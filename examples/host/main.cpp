// SPDX-License-Identifier: Apache-2.0

// Loads the plug-in, registers the services that the command line names, and lists all services.
//
//     QV_CONFIG_DIR=state QV_LOG_DIR=log exampleHost 1 /run/a.sock 2 tcp://127.0.0.1:9000
#include <QvPlugin.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

#include "namingService.pb.h"

namespace {

using qor::kevra::ServiceInfo;
using qor::kevra::ServiceInfoArray;

class Plugin {
  public:
    explicit Plugin(const char* file) : library_(dlopen(file, RTLD_NOW | RTLD_LOCAL)) {
        if (library_ == nullptr) {
            throw std::runtime_error(dlerror());
        }
        void* reserved = nullptr;
        find<decltype(QvPluginInitialize)>("QvPluginInitialize")();
        find<decltype(QvPluginGetHandlers)>("QvPluginGetHandlers")(&table_, &rows_, &reserved);
    }
    ~Plugin() {
        find<decltype(QvPluginFinalize)>("QvPluginFinalize")();
        dlclose(library_);
    }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    std::string execute(int command, const std::string& in) const {
        for (const HandlerEntry* row = table_; row != table_ + rows_; ++row) {
            if (row->command == static_cast<uint32_t>(command)) {
                void* out = nullptr;
                int length = 0;
                const int result =
                    row->handler(command, in.data(), static_cast<int>(in.size()), &out, &length);
                const std::string answer(static_cast<const char*>(out),
                                         out == nullptr ? 0 : static_cast<std::size_t>(length));
                find<decltype(QvPluginFree)>("QvPluginFree")(out);
                if (result != QV_OK) {
                    throw std::runtime_error("the plug-in answered " + std::to_string(result));
                }
                return answer;
            }
        }
        throw std::runtime_error("the plug-in has no command " + std::to_string(command));
    }

  private:
    template <typename Function>
    Function* find(const char* name) const {
        void* const symbol = dlsym(library_, name);
        if (symbol == nullptr) {
            throw std::runtime_error(dlerror());
        }
        return reinterpret_cast<Function*>(symbol);
    }

    void* library_;
    const HandlerEntry* table_ = nullptr;
    int32_t rows_ = 0;
};

void run(int argc, char** argv) {
    ServiceInfoArray request;
    for (int i = 1; i + 1 < argc; i += 2) {
        ServiceInfo* const service = request.add_services();
        service->set_id(std::stoi(argv[i]));
        service->set_address(argv[i + 1]);
    }
    const Plugin plugin(PLUGIN_FILE);
    plugin.execute(QV_COMMAND_REGISTER_SERVICES, request.SerializeAsString());

    ServiceInfoArray all;
    all.ParseFromString(plugin.execute(QV_COMMAND_GET_SERVICES, ""));
    for (const ServiceInfo& service : all.services()) {
        std::printf("%d %s\n", service.id(), service.address().c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        run(argc, argv);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "exampleHost: %s\n", error.what());
    } catch (const std::string& text) {
        // The plug-in throws a text if it cannot take its lock.
        std::fprintf(stderr, "exampleHost: %s\n", text.c_str());
    }
    return EXIT_FAILURE;
}
