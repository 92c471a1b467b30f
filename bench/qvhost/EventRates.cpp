// SPDX-License-Identifier: Apache-2.0

#include "EventRates.h"

#include <cstdint>
#include <cstdio>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "HostSubject.h"
#include "Quantile.h"
#include "Rate.h"
#include "RedisSubject.h"
#include "Subject.h"
#include "Subscribers.h"
#include "server/DescriptorLimit.h"
#include "support/Services.h"

namespace qv::bench {

namespace {

constexpr int kSubscribers = 64;
constexpr int kManySubscribers = 1'000;
constexpr int kFewServices = 100;
constexpr int kManyServices = 10'000;

using Clock = std::chrono::steady_clock;

// Measures how many events a second the subscribers receive while some clients cause them.
class Delivery {
  public:
    Delivery(Subject& subject, Work work, int writers, const Subscribers& subscribers)
        : subscribers_(subscribers), rate_(subject, work, writers) {}

    void measure(Clock::duration time) {
        const std::int64_t before = subscribers_.events();
        const auto start = Clock::now();
        rate_.measure(time);
        const std::int64_t events = subscribers_.events() - before;
        const std::chrono::duration<double> taken = Clock::now() - start;
        rates_.push_back(static_cast<double>(events) / taken.count());
    }

    double median() const { return quantile(rates_, 0.5); }
    double medianRatioTo(const Delivery& other) const { return medianRatio(rates_, other.rates_); }
    double changes() const { return rate_.median(); }

    // Returns the share of the changes that the subscribers received. The rest were replaced by a
    // snapshot, or under way at the end of a round.
    double share() const { return median() / (rate_.median() * kSubscribers); }

    // Returns the processor time of the server for an event and its share of a change.
    double cost() const { return rate_.medianCost() * rate_.median() / median(); }

  private:
    const Subscribers& subscribers_;
    Rate rate_;
    std::vector<double> rates_;
};

struct EventRow {
    EventRow(int writerCount, Subject& subject, const Subscribers& subscribers)
        : writers(writerCount), host(subject, Work::Change, writerCount, subscribers) {}

    int writers;
    Delivery host;
    std::optional<Delivery> redis;
};

void print(const EventRow& row) {
    std::printf("| %d client%s that change%s | %.0f |", row.writers, row.writers == 1 ? "" : "s",
                row.writers == 1 ? "s" : "", row.host.median());
    if (row.redis) {
        std::printf(" %.0f | %.2f | %.2f µs | %.2f µs | %.0f | %.0f |", row.redis->median(),
                    row.host.medianRatioTo(*row.redis), row.host.cost(), row.redis->cost(),
                    row.host.changes(), row.redis->changes());
    } else {
        std::printf("  |  | %.2f µs |  | %.0f |  |", row.host.cost(), row.host.changes());
    }
    std::printf(" %.2f |\n", row.host.share());
}

}  // namespace

void printEventRates(int rounds, Clock::duration slice) {
    HostSubject host(kHostThreads, Place::Kind::Memory);
    host.hold(kFewServices);
    const Subscribers hostSubscribers(host.path(), kSubscribers, hostEvents());
    const std::unique_ptr<RedisSubject> redis = startRedis("component_bench");
    std::optional<Subscribers> redisSubscribers;
    if (redis) {
        redis->hold(kFewServices);
        redisSubscribers.emplace(redis->path(), kSubscribers,
                                 redisEvents(addressOf(kFewServices - 1)));
    }
    std::deque<EventRow> rows;
    for (const int writers : {1, kMostClients}) {
        EventRow& row = rows.emplace_back(writers, host, hostSubscribers);
        if (redis) {
            row.redis.emplace(*redis, Work::Publication, writers, *redisSubscribers);
        }
    }
    for (int round = 0; round < rounds; ++round) {
        for (EventRow& row : rows) {
            row.host.measure(slice);
            if (row.redis) {
                row.redis->measure(slice);
            }
        }
    }
    std::printf(
        "| events to %d subscribers | a second | Redis | ratio | processor time | Redis | changes "
        "a "
        "second | Redis | received |\n",
        kSubscribers);
    std::printf("|---|---|---|---|---|---|---|---|---|\n");
    for (const EventRow& row : rows) {
        print(row);
    }
}

void printSubscribedChangeRates(int rounds, Clock::duration slice) {
    host::raiseDescriptorLimit();
    HostSubject alone(kHostThreads, Place::Kind::Disk);
    HostSubject followed(kHostThreads, Place::Kind::Disk);
    alone.hold(kManyServices);
    followed.hold(kManyServices);
    Rate without(alone, Work::Change, kMostClients);
    Rate with(followed, Work::Change, kMostClients);
    const Subscribers subscribers(followed.path(), kManySubscribers, uncountedHostEvents());
    for (int round = 0; round < rounds; ++round) {
        without.measure(slice);
        with.measure(slice);
        static_cast<void>(subscribers.events());
    }
    std::printf(
        "| changes by %d clients | a second | of the rate without | processor time | of the time "
        "without |\n",
        kMostClients);
    std::printf("|---|---|---|---|---|\n");
    std::printf("| no subscribers | %.0f | 1.00 | %.1f µs | 1.00 |\n", without.median(),
                without.medianCost());
    std::printf("| %d subscribers | %.0f | %.2f | %.1f µs | %.2f |\n", kManySubscribers,
                with.median(), with.medianRatioTo(without), with.medianCost(),
                with.medianCost() / without.medianCost());
}

}  // namespace qv::bench
