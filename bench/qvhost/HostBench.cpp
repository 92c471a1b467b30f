// SPDX-License-Identifier: Apache-2.0

// Measures requests to the resident host, by one client and by many at once, against
//   - the bare sockets, which carry the same bytes without any work;
//   - rpcbind, which keeps a directory of the same kind.
// The counter is the processor time of the server for a request, in nanoseconds.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>

#include "Driver.h"
#include "EchoSubject.h"
#include "HostSubject.h"
#include "OneProcessor.h"
#include "RpcbindSubject.h"
#include "Subject.h"

namespace {

using namespace qv::bench;

template <class Tested>
Subject* tested = nullptr;

// The first number counts the services, the second one the clients.
template <class Tested, Work work>
void measure(benchmark::State& state) {
    if (tested<Tested> == nullptr) {
        state.SkipWithError("it does not run");
        return;
    }
    Subject& subject = *tested<Tested>;
    subject.hold(static_cast<int>(state.range(0)));
    const int clients = static_cast<int>(state.range(1));
    Driver driver(subject, work, clients);
    std::optional<OneProcessor> together;
    if (clients == 1) {
        together.emplace(subject.process().id());
    }
    const auto before = subject.process().processorTime();
    while (state.KeepRunningBatch(state.max_iterations)) {
        driver.run(state.max_iterations);
    }
    const auto taken = subject.process().processorTime() - before;
    state.counters["server"] =
        benchmark::Counter(static_cast<double>(taken.count()), benchmark::Counter::kAvgIterations);
}

#define QV_MEASURE(subject, work, name, ...)              \
    BENCHMARK(measure<subject, Work::work>)               \
        ->Name(name)                                      \
        ->ArgsProduct({{__VA_ARGS__}, {1, kMostClients}}) \
        ->UseRealTime()

QV_MEASURE(HostSubject, Ping, "host/ping", 100);
QV_MEASURE(EchoSubject, Ping, "echo/ping", 100);
QV_MEASURE(RpcbindSubject, Ping, "rpcbind/ping", 100);
QV_MEASURE(HostSubject, Listing, "host/listing", 20, 1'000);
QV_MEASURE(EchoSubject, Listing, "echo/listing", 20, 1'000);
QV_MEASURE(RpcbindSubject, Listing, "rpcbind/listing", 20, 1'000);
QV_MEASURE(HostSubject, UnchangedRegistration, "host/unchangedRegistration", 100);
QV_MEASURE(EchoSubject, UnchangedRegistration, "echo/unchangedRegistration", 100);
QV_MEASURE(RpcbindSubject, UnchangedRegistration, "rpcbind/unchangedRegistration", 100);
// Bare sockets say nothing here, because the save takes nearly all the time of a change.
QV_MEASURE(HostSubject, Change, "host/change", 100);
QV_MEASURE(RpcbindSubject, Change, "rpcbind/change", 100);

std::unique_ptr<RpcbindSubject> startRpcbind() {
    try {
        return std::make_unique<RpcbindSubject>();
    } catch (const std::exception& error) {
        static_cast<void>(
            std::fprintf(stderr, "host_bench: rpcbind does not run: %s\n", error.what()));
        return nullptr;
    }
}

void run() {
    HostSubject host(kHostThreads, Place::Kind::Memory);
    EchoSubject echo(host, kHostThreads);
    const std::unique_ptr<RpcbindSubject> rpcbind = startRpcbind();
    tested<HostSubject> = &host;
    tested<EchoSubject> = &echo;
    tested<RpcbindSubject> = rpcbind.get();
    // No table can be printed of a skipped benchmark.
    const std::string filter = benchmark::GetBenchmarkFilter();
    if (rpcbind == nullptr && (filter.empty() || filter == ".")) {
        benchmark::SetBenchmarkFilter("-^rpcbind/");
    }
    benchmark::RunSpecifiedBenchmarks();
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    try {
        run();
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "host_bench: %s\n", error.what()));
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
