// SPDX-License-Identifier: Apache-2.0

// Measures what components ask of the resident host: they find services, wait for them and
// subscribe to changes.
//
//     component_bench ROUNDS SLICE SERVICES
//
// Compares finds and events a second with those of Redis, and changes a second with and without
// subscribers, in as many rounds, in which each server has SLICE seconds at a time. Then clients
// wait for SERVICES services.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "EventRates.h"
#include "FindRates.h"
#include "WaitTimes.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        static_cast<void>(std::fputs("usage: component_bench ROUNDS SLICE SERVICES\n", stderr));
        return EXIT_FAILURE;
    }
    const int rounds = std::atoi(argv[1]);
    const auto slice = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(std::atof(argv[2])));
    try {
        qv::bench::printFindRates(rounds, slice);
        std::printf("\n");
        qv::bench::printEventRates(rounds, slice);
        std::printf("\n");
        qv::bench::printSubscribedChangeRates(rounds, slice);
        std::printf("\n");
        qv::bench::printWaitTimes(std::atoi(argv[3]));
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "component_bench: %s\n", error.what()));
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
