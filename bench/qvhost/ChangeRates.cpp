// SPDX-License-Identifier: Apache-2.0

#include "ChangeRates.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "HostSubject.h"
#include "Quantile.h"
#include "Rate.h"
#include "RedisSubject.h"
#include "Subject.h"

namespace qv::bench {

namespace {

constexpr int kSizes[] = {100, 10'000};
constexpr int kClients[] = {1, kMostClients};

using Clock = std::chrono::steady_clock;

// Measures how often the disk flushes the bytes of one change.
class FlushRate {
  public:
    void measure(Clock::duration time) {
        const std::string bytes(100, 'a');
        const auto start = Clock::now();
        int times = 0;
        for (; Clock::now() < start + time; ++times) {
            if (write(file_.get(), bytes.data(), bytes.size()) == -1 ||
                fdatasync(file_.get()) == -1) {
                throw std::system_error(errno, std::generic_category(), "cannot flush a file");
            }
        }
        rounds_.push_back(times / std::chrono::duration<double>(Clock::now() - start).count());
    }

    double median() const { return quantile(rounds_, 0.5); }

  private:
    Place place_{Place::Kind::Disk};
    Descriptor file_{open(place_.path("flushed").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC,
                          S_IRUSR | S_IWUSR)};
    std::vector<double> rounds_;
};

struct ChangeRow {
    ChangeRow(int serviceCount, int clientCount, Subject& subject)
        : services(serviceCount), clients(clientCount), host(subject, Work::Change, clientCount) {}

    int services;
    int clients;
    Rate host;
    std::optional<Rate> redis;
};

void print(const ChangeRow& row, const ChangeRow& smallest) {
    std::printf("| %d services, %d client%s | %.0f |", row.services, row.clients,
                row.clients == 1 ? "" : "s", row.host.median());
    if (row.redis) {
        std::printf(" %.0f | %.3f |", row.redis->median(), row.host.medianRatioTo(*row.redis));
    } else {
        std::printf("  |  |");
    }
    std::printf(" %.3f |\n", row.host.medianRatioTo(smallest.host));
}

}  // namespace

void printChangeRates(int rounds, std::chrono::steady_clock::duration slice) {
    std::vector<std::unique_ptr<Subject>> servers;
    std::deque<ChangeRow> rows;
    for (const int services : kSizes) {
        Subject& host =
            *servers.emplace_back(std::make_unique<HostSubject>(kHostThreads, Place::Kind::Disk));
        host.hold(services);
        Subject* const redis = servers.emplace_back(startRedis("disk_bench")).get();
        if (redis != nullptr) {
            redis->hold(services);
        }
        for (const int clients : kClients) {
            ChangeRow& row = rows.emplace_back(services, clients, host);
            if (redis != nullptr) {
                row.redis.emplace(*redis, Work::Change, clients);
            }
        }
    }
    FlushRate flush;
    for (int round = 0; round < rounds; ++round) {
        flush.measure(slice);
        for (ChangeRow& row : rows) {
            row.host.measure(slice);
            if (row.redis) {
                row.redis->measure(slice);
            }
        }
    }
    std::printf("| changes on a disk | a second | Redis | ratio | of the rate with %d services |\n",
                kSizes[0]);
    std::printf("|---|---|---|---|---|\n");
    for (std::size_t i = 0; i < rows.size(); ++i) {
        print(rows[i], rows[i % std::size(kClients)]);
    }
    std::printf("| bare flush of 100 bytes | %.0f |  |  |  |\n", flush.median());
}

}  // namespace qv::bench
