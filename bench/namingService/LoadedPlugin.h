// SPDX-License-Identifier: Apache-2.0

// Loads the plug-in as a host does.
#ifndef QV_BENCH_LOADED_PLUGIN_H
#define QV_BENCH_LOADED_PLUGIN_H

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "QvPlugin.h"
#include "namingService.pb.h"
#include "support/Services.h"

namespace qv::bench {

// Loads the plug-in without initialising it.
class LoadedPlugin {
  public:
    LoadedPlugin() : library_(dlopen(QV_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL)) {
        if (library_ == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            std::abort();
        }
        std::int32_t rows = 0;
        void* reserved = nullptr;
        find<decltype(&QvPluginGetHandlers)>("QvPluginGetHandlers")(&table_, &rows, &reserved);
        initialize = find<decltype(initialize)>("QvPluginInitialize");
        finalize = find<decltype(finalize)>("QvPluginFinalize");
        free_ = find<decltype(free_)>("QvPluginFree");
    }
    ~LoadedPlugin() { dlclose(library_); }
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    decltype(&QvPluginInitialize) initialize = nullptr;
    decltype(&QvPluginFinalize) finalize = nullptr;

    void registerServices(const std::string& bytes) const {
        table_[0].handler(QV_COMMAND_REGISTER_SERVICES, bytes.data(),
                          static_cast<int>(bytes.size()), nullptr, nullptr);
    }
    void unregisterServices(const std::string& bytes) const {
        table_[1].handler(QV_COMMAND_UNREGISTER_SERVICES, bytes.data(),
                          static_cast<int>(bytes.size()), nullptr, nullptr);
    }
    void getServices() const {
        void* answer = nullptr;
        int length = 0;
        table_[2].handler(QV_COMMAND_GET_SERVICES, nullptr, 0, &answer, &length);
        benchmark::DoNotOptimize(answer);
        free_(answer);
    }

  private:
    template <class Function>
    Function find(const char* name) const {
        return reinterpret_cast<Function>(dlsym(library_, name));
    }

    void* library_;
    const HandlerEntry* table_ = nullptr;
    decltype(&QvPluginFree) free_ = nullptr;
};

// Loads and initialises the plug-in and registers `count` services.
class FilledPlugin : public LoadedPlugin {
  public:
    explicit FilledPlugin(int count) {
        initialize();
        registerServices(servicesUpTo<qor::kevra::ServiceInfoArray>(count).SerializeAsString());
    }
    ~FilledPlugin() { finalize(); }
    FilledPlugin(const FilledPlugin&) = delete;
    FilledPlugin& operator=(const FilledPlugin&) = delete;
};

}  // namespace qv::bench

#endif  // QV_BENCH_LOADED_PLUGIN_H
