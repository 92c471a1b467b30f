// SPDX-License-Identifier: Apache-2.0

// Compares the plug-in's commands with the bare work that they contain, in one run:
//   - a listing with the serialisation of a finished message of the same services, which the
//   plug-in
//     must build first;
//   - an unchanged registration in a directory of 10,000 services with a parse of the same bytes
//   and
//     one look-up in an ordered map.
// Measures the bare work with our message classes and with those of the stock generator.

#include <benchmark/benchmark.h>

#include <map>
#include <string>

#include "LoadedPlugin.h"
#include "namingService.pb.h"
#include "stockMessages.pb.h"

namespace {

using qv::bench::addressOf;
using qv::bench::FilledPlugin;
using qv::bench::servicesUpTo;

void getServices(benchmark::State& state) {
    const FilledPlugin plugin(static_cast<int>(state.range(0)));
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

void unchangedRegistration(benchmark::State& state) {
    const FilledPlugin plugin(kRegistered);
    const std::string request = qv::bench::registration(kAsked, addressOf(kAsked));
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
    const std::string request = qv::bench::registration(kAsked, addressOf(kAsked));
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
