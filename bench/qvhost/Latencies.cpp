// SPDX-License-Identifier: Apache-2.0

#include "Latencies.h"

#include <cstdint>
#include <cstdio>
#include <future>
#include <string>
#include <vector>

#include "Driver.h"
#include "EchoSubject.h"
#include "HostSubject.h"
#include "Quantile.h"
#include "Subject.h"

namespace qv::bench {

namespace {

// Measures how long one request waits for its answer.
class Latency {
  public:
    Latency(Subject& subject, Work work)
        : subject_(&subject), request_(subject.requests(work, 0).front()) {}

    void measure() {
        const auto start = std::chrono::steady_clock::now();
        subject_->ask(request_);
        const std::chrono::duration<double, std::milli> taken =
            std::chrono::steady_clock::now() - start;
        milliseconds_.push_back(taken.count());
    }

    double quantile(double share) const { return bench::quantile(milliseconds_, share); }

  private:
    Subject* subject_;
    std::string request_;
    std::vector<double> milliseconds_;
};

struct LatencyRow {
    const char* label = nullptr;
    Latency host;
    Latency echo;
};

void print(const LatencyRow& row) {
    std::printf("| %s |", row.label);
    for (const double share : {0.5, 0.99}) {
        const double host = row.host.quantile(share);
        const double echo = row.echo.quantile(share);
        std::printf(" %.3f ms | %.3f ms | %.2f |", host, echo, host / echo);
    }
    std::printf("\n");
}

}  // namespace

void printLatencies(std::chrono::steady_clock::duration time) {
    HostSubject host(kHostThreads, Place::Kind::Disk);
    EchoSubject echo(host, kHostThreads);
    host.hold(kLargeDirectory);
    LatencyRow rows[] = {
        {"listing of 10000 services", {host, Work::Listing}, {echo, Work::Listing}},
        {"ping", {host, Work::Ping}, {echo, Work::Ping}},
    };

    Driver driver(host, Work::Change, kMostClients);
    std::future<std::int64_t> writers =
        std::async(std::launch::async, [&] { return driver.runFor(time); });
    do {
        for (LatencyRow& row : rows) {
            row.host.measure();
            row.echo.measure();
        }
    } while (writers.wait_for(std::chrono::seconds(0)) == std::future_status::timeout);
    static_cast<void>(writers.get());

    std::printf(
        "| beside 64 clients that change | median | bare sockets | ratio | 99th percentile | bare "
        "sockets | ratio |\n");
    std::printf("|---|---|---|---|---|---|---|\n");
    for (const LatencyRow& row : rows) {
        print(row);
    }
}

}  // namespace qv::bench
