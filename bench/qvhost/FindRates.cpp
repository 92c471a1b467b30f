#include "FindRates.h"

#include <cstdio>
#include <deque>
#include <memory>
#include <optional>

#include "HostSubject.h"
#include "Rate.h"
#include "RedisSubject.h"
#include "Subject.h"

namespace qv::bench {

namespace {

constexpr int kServices = 10'000;

struct Row {
    Row(int clientCount, Subject& subject)
        : clients(clientCount), host(subject, Work::Find, clientCount) {}

    int clients;
    Rate host;
    std::optional<Rate> redis;
};

void print(const Row& row) {
    std::printf("| find, %d client%s | %.0f |", row.clients, row.clients == 1 ? "" : "s",
                row.host.median());
    if (row.redis) {
        std::printf(" %.0f | %.2f | %.1f µs | %.1f µs |\n", row.redis->median(),
                    row.host.medianRatioTo(*row.redis), row.host.medianCost(),
                    row.redis->medianCost());
    } else {
        std::printf("  |  | %.1f µs |  |\n", row.host.medianCost());
    }
}

}  // namespace

void printFindRates(int rounds, std::chrono::steady_clock::duration slice) {
    HostSubject host(kHostThreads, Place::Kind::Memory);
    host.hold(kServices);
    const std::unique_ptr<RedisSubject> redis = startRedis("component_bench");
    if (redis) {
        redis->hold(kServices);
    }
    std::deque<Row> rows;
    for (const int clients : {1, kMostClients}) {
        Row& row = rows.emplace_back(clients, host);
        if (redis) {
            row.redis.emplace(*redis, Work::Find, clients);
        }
    }
    for (int round = 0; round < rounds; ++round) {
        for (Row& row : rows) {
            row.host.measure(slice);
            if (row.redis) {
                row.redis->measure(slice);
            }
        }
    }
    std::printf("| one of %d services | a second | Redis | ratio | processor time | Redis |\n",
                kServices);
    std::printf("|---|---|---|---|---|---|\n");
    for (const Row& row : rows) {
        print(row);
    }
}

}  // namespace qv::bench
