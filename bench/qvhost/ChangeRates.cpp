#include "ChangeRates.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "Driver.h"
#include "HostSubject.h"
#include "OneProcessor.h"
#include "Quantile.h"
#include "RedisSubject.h"
#include "Subject.h"

namespace qv::bench {

namespace {

constexpr int kSizes[] = {100, 10'000};
constexpr int kClients[] = {1, kMostClients};

using Clock = std::chrono::steady_clock;

// Returns how many times a second `action` does its work. It does so repeatedly, and returns how
// many times.
template <class Action>
double perSecond(Action action) {
    const auto start = Clock::now();
    const auto times = static_cast<double>(action());
    return times / std::chrono::duration<double>(Clock::now() - start).count();
}

// Measures the changes of some clients in a directory.
class Rate {
  public:
    Rate(Subject& subject, int clients)
        : subject_(&subject),
          clients_(clients),
          driver_(std::make_unique<Driver>(subject, Work::Change, clients)) {}

    void measure(Clock::duration time) {
        std::optional<OneProcessor> together;
        if (clients_ == 1) {
            together.emplace(subject_->process().id());
        }
        rounds_.push_back(perSecond([&] { return driver_->runFor(time); }));
    }

    double median() const { return quantile(rounds_, 0.5); }

    double medianRatioTo(const Rate& other) const {
        std::vector<double> ratios;
        for (std::size_t round = 0; round < rounds_.size(); ++round) {
            ratios.push_back(rounds_[round] / other.rounds_[round]);
        }
        return quantile(ratios, 0.5);
    }

  private:
    Subject* subject_;
    int clients_;
    std::unique_ptr<Driver> driver_;
    std::vector<double> rounds_;
};

// Measures how often the disk flushes the bytes of one change.
class FlushRate {
  public:
    void measure(Clock::duration time) {
        const std::string bytes(100, 'a');
        rounds_.push_back(perSecond([&] {
            int times = 0;
            for (const auto end = Clock::now() + time; Clock::now() < end; ++times) {
                if (write(file_.get(), bytes.data(), bytes.size()) == -1 ||
                    fdatasync(file_.get()) == -1) {
                    throw std::system_error(errno, std::generic_category(), "cannot flush a file");
                }
            }
            return times;
        }));
    }

    double median() const { return quantile(rounds_, 0.5); }

  private:
    Place place_{Place::Kind::Disk};
    Descriptor file_{open(place_.path("flushed").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC,
                          S_IRUSR | S_IWUSR)};
    std::vector<double> rounds_;
};

struct Row {
    int services = 0;
    int clients = 0;
    Rate host;
    std::optional<Rate> redis;
};

std::unique_ptr<Subject> startRedis() {
    try {
        return std::make_unique<RedisSubject>();
    } catch (const std::exception& error) {
        static_cast<void>(
            std::fprintf(stderr, "disk_bench: Redis does not run: %s\n", error.what()));
        return nullptr;
    }
}

void print(const Row& row, const Row& smallest) {
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
    std::vector<Row> rows;
    for (const int services : kSizes) {
        Subject& host =
            *servers.emplace_back(std::make_unique<HostSubject>(kHostThreads, Place::Kind::Disk));
        host.hold(services);
        Subject* const redis = servers.emplace_back(startRedis()).get();
        if (redis != nullptr) {
            redis->hold(services);
        }
        for (const int clients : kClients) {
            Row& row = rows.emplace_back(Row{services, clients, Rate(host, clients), {}});
            if (redis != nullptr) {
                row.redis.emplace(*redis, clients);
            }
        }
    }
    FlushRate flush;
    for (int round = 0; round < rounds; ++round) {
        flush.measure(slice);
        for (Row& row : rows) {
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
