// SPDX-License-Identifier: Apache-2.0

#include "WaitTimes.h"

#include <QvClient.h>
#include <QvPlugin.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "FrameConnection.h"
#include "HostSubject.h"
#include "Quantile.h"
#include "support/Services.h"

namespace qv::bench {

namespace {

// A waiting client is under way after this time.
constexpr std::chrono::milliseconds kStartTime(20);

// The longest pause between two listings. A registration comes at any time of the pause.
constexpr std::chrono::milliseconds kLongPause(10);
constexpr std::chrono::milliseconds kShortPause(1);

using Clock = std::chrono::steady_clock;
using Wait = std::function<void(int id)>;

class WaitTime {
  public:
    WaitTime(std::string label, Wait wait) : label_(std::move(label)), wait_(std::move(wait)) {}

    // Registers the service while a client waits for it, and removes the service again.
    void measure(HostSubject& host, int id, Clock::duration phase) {
        std::future<Clock::time_point> known = std::async(std::launch::async, [&] {
            wait_(id);
            return Clock::now();
        });
        std::this_thread::sleep_for(kStartTime + phase);
        const std::string service = registration(id, addressOf(id));
        host.ask(frame(QV_COMMAND_REGISTER_SERVICES, service));
        const auto registered = Clock::now();
        const std::chrono::duration<double, std::milli> taken = known.get() - registered;
        milliseconds_.push_back(std::max(taken.count(), 0.0));
        host.ask(frame(QV_COMMAND_UNREGISTER_SERVICES, service));
    }

    void print() const {
        std::printf("| %s | %.3f ms | %.3f ms |\n", label_.c_str(), quantile(milliseconds_, 0.5),
                    quantile(milliseconds_, 0.99));
    }

  private:
    const std::string label_;
    const Wait wait_;
    std::vector<double> milliseconds_;
};

Wait listings(client::Client& client, std::chrono::milliseconds pause) {
    return [&client, pause](int id) {
        for (;;) {
            const std::vector<client::Service> services = client.services();
            if (std::any_of(services.begin(), services.end(),
                            [&](const client::Service& service) { return service.id == id; })) {
                return;
            }
            std::this_thread::sleep_for(pause);
        }
    };
}

}  // namespace

void printWaitTimes(int services) {
    HostSubject host(kHostThreads, Place::Kind::Disk);
    host.hold(kLargeDirectory);
    client::Client client(host.path());
    WaitTime ways[] = {
        {"waitFor()", [&](int id) { client.waitFor(id); }},
        {"a listing every 1 ms", listings(client, kShortPause)},
        {"a listing every 10 ms", listings(client, kLongPause)},
    };
    std::minstd_rand random;
    std::uniform_int_distribution<Clock::rep> phase(0, Clock::duration(kLongPause).count());
    for (int id = kLargeDirectory; id < kLargeDirectory + services; ++id) {
        for (WaitTime& way : ways) {
            way.measure(host, id, Clock::duration(phase(random)));
        }
    }
    std::printf("| after the answer to a registration | median | 99th percentile |\n");
    std::printf("|---|---|---|\n");
    for (const WaitTime& way : ways) {
        way.print();
    }
}

}  // namespace qv::bench
