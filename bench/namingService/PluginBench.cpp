// The plug-in's commands against the bare work that they cannot do without, in the same run:
//   - listing against the serialisation of the same message, which is there already;
//   - an unchanged registration in a directory of 10,000 services against a parse of the same bytes
//     and one look-up in an ordered map.
// The bare work is measured with our message classes and with those of the runtime's own generator.

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "QvPlugin.h"
#include "namingService.pb.h"
#include "stockMessages.pb.h"

namespace {

std::string addressOf(int id) {
    return "unix:/var/run/lorx/service-" + std::to_string(id) + ".sock";
}

template <class Array>
Array servicesUpTo(int count) {
    Array array;
    for (int id = 0; id < count; ++id) {
        auto* service = array.add_services();
        service->set_id(id);
        service->set_address(addressOf(id));
    }
    return array;
}

// The plug-in, initialised, with `count` services.
class Plugin {
  public:
    explicit Plugin(int count) : library_(dlopen(QV_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL)) {
        if (library_ == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            std::abort();
        }
        find<decltype(&QvPluginInitialize)>("QvPluginInitialize")();
        std::int32_t rows = 0;
        void* reserved = nullptr;
        find<decltype(&QvPluginGetHandlers)>("QvPluginGetHandlers")(&table_, &rows, &reserved);
        free_ = find<decltype(&QvPluginFree)>("QvPluginFree");
        registerServices(servicesUpTo<qor::kevra::ServiceInfoArray>(count).SerializeAsString());
    }
    ~Plugin() {
        find<decltype(&QvPluginFinalize)>("QvPluginFinalize")();
        dlclose(library_);
    }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    void registerServices(const std::string& bytes) const {
        table_[0].handler(QV_COMMAND_REGISTER_SERVICES, bytes.data(),
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

void getServices(benchmark::State& state) {
    const Plugin plugin(static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) {
        plugin.getServices();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Array>
void bareSerialisation(benchmark::State& state) {
    const auto array = servicesUpTo<Array>(static_cast<int>(state.range(0)));
    std::string buffer(array.ByteSizeLong(), '\0');
    for ([[maybe_unused]] auto _ : state) {
        array.SerializeToArray(buffer.data(), static_cast<int>(buffer.size()));
        benchmark::DoNotOptimize(buffer.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

constexpr int kRegistered = 10'000;
constexpr int kAsked = 6'543;

std::string oneService() {
    qor::kevra::ServiceInfoArray array;
    auto* service = array.add_services();
    service->set_id(kAsked);
    service->set_address(addressOf(kAsked));
    return array.SerializeAsString();
}

void unchangedRegistration(benchmark::State& state) {
    const Plugin plugin(kRegistered);
    const std::string request = oneService();
    for ([[maybe_unused]] auto _ : state) {
        plugin.registerServices(request);
    }
}

template <class Array>
void bareParseAndLookUp(benchmark::State& state) {
    std::map<int, std::string> directory;
    for (int id = 0; id < kRegistered; ++id) {
        directory[id] = addressOf(id);
    }
    const std::string request = oneService();
    for ([[maybe_unused]] auto _ : state) {
        Array array;
        array.ParseFromArray(request.data(), static_cast<int>(request.size()));
        benchmark::DoNotOptimize(directory.find(array.services(0).id()));
    }
}

#define QV_SIZES Arg(10)->Arg(100)->Arg(1'000)->Arg(10'000)->Arg(100'000)

BENCHMARK(getServices)->QV_SIZES;
BENCHMARK_TEMPLATE(bareSerialisation, qor::kevra::ServiceInfoArray)->QV_SIZES;
BENCHMARK_TEMPLATE(bareSerialisation, stock::ServiceInfoArray)->QV_SIZES;
BENCHMARK(unchangedRegistration);
BENCHMARK_TEMPLATE(bareParseAndLookUp, qor::kevra::ServiceInfoArray);
BENCHMARK_TEMPLATE(bareParseAndLookUp, stock::ServiceInfoArray);

}  // namespace
