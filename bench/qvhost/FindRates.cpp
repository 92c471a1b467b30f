// SPDX-License-Identifier: Apache-2.0

#include "FindRates.h"

#include <cstdio>
#include <deque>
#include <memory>
#include <optional>

#include "EchoSubject.h"
#include "HostSubject.h"
#include "Rate.h"
#include "RedisSubject.h"
#include "Subject.h"

namespace qv::bench {

namespace {

struct FindRow {
    FindRow(int clientCount, Subject& hostSubject, Subject& echoSubject)
        : clients(clientCount),
          host(hostSubject, Work::Find, clientCount),
          echo(echoSubject, Work::Find, clientCount) {}

    int clients;
    Rate host;
    Rate echo;
    std::optional<Rate> redis;
};

void print(const FindRow& row) {
    std::printf("| find, %d client%s | %.0f | %.0f | %.2f |", row.clients,
                row.clients == 1 ? "" : "s", row.host.median(), row.echo.median(),
                row.host.medianRatioTo(row.echo));
    if (row.redis) {
        std::printf(" %.0f | %.2f |", row.redis->median(), row.host.medianRatioTo(*row.redis));
    } else {
        std::printf("  |  |");
    }
    std::printf(" %.1f µs | %.1f µs |", row.host.medianCost(), row.echo.medianCost());
    if (row.redis) {
        std::printf(" %.1f µs |\n", row.redis->medianCost());
    } else {
        std::printf("  |\n");
    }
}

}  // namespace

void printFindRates(int rounds, std::chrono::steady_clock::duration slice) {
    HostSubject host(kHostThreads, Place::Kind::Memory);
    host.hold(kLargeDirectory);
    EchoSubject echo(host, kHostThreads);
    const std::unique_ptr<RedisSubject> redis = startRedis("component_bench");
    if (redis) {
        redis->hold(kLargeDirectory);
    }
    std::deque<FindRow> rows;
    for (const int clients : {1, kMostClients}) {
        FindRow& row = rows.emplace_back(clients, host, echo);
        if (redis) {
            row.redis.emplace(*redis, Work::Find, clients);
        }
    }
    for (int round = 0; round < rounds; ++round) {
        for (FindRow& row : rows) {
            row.host.measure(slice);
            row.echo.measure(slice);
            if (row.redis) {
                row.redis->measure(slice);
            }
        }
    }
    std::printf(
        "| one of %d services | a second | bare sockets | ratio | Redis | ratio | processor time | "
        "bare sockets | Redis |\n",
        kLargeDirectory);
    std::printf("|---|---|---|---|---|---|---|---|---|\n");
    for (const FindRow& row : rows) {
        print(row);
    }
}

}  // namespace qv::bench
