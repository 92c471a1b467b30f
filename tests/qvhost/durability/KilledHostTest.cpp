// SPDX-License-Identifier: Apache-2.0

// Kills the host at random moments while clients change the directory, and starts it again. The
// ordinary run is short. A long run takes its numbers from the environment:
//
//     QVHOST_TEST_KILLS=200 QVHOST_TEST_SERVICES=100000
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"
#include "qvhost/durability/Writer.h"
#include "support/UsualOrReduced.h"

namespace qv::host {
namespace {

int numberFrom(const char* variable, int usual) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? usual : std::atoi(text);
}

// Waits until somebody opens or writes a file of a directory.
class DirectoryWatch {
  public:
    explicit DirectoryWatch(const std::string& directory)
        : descriptor_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        if (::inotify_add_watch(descriptor_, directory.c_str(), IN_OPEN | IN_MODIFY) == -1) {
            throw std::system_error(errno, std::generic_category(), directory);
        }
    }
    ~DirectoryWatch() { ::close(descriptor_); }
    DirectoryWatch(const DirectoryWatch&) = delete;
    DirectoryWatch& operator=(const DirectoryWatch&) = delete;

    // Waits for the next event after the call that concerns the file.
    void await(const std::string& name) const {
        alignas(inotify_event) char events[1 << 16];
        while (::read(descriptor_, events, sizeof events) > 0) {
        }
        pollfd wanted = {descriptor_, POLLIN, 0};
        constexpr int kNever = 60'000;
        while (::poll(&wanted, 1, kNever) == 1) {
            const ssize_t size = ::read(descriptor_, events, sizeof events);
            for (ssize_t position = 0; position < size;) {
                const auto* const event = reinterpret_cast<const inotify_event*>(events + position);
                if (event->len != 0 && name == event->name) {
                    return;
                }
                position += static_cast<ssize_t>(sizeof *event + event->len);
            }
        }
        ADD_FAILURE() << "nobody uses " << name;
    }

  private:
    int descriptor_;
};

class KilledHost : public testing::Test {
  protected:
    KilledHost() {
        constexpr int32_t kFirst = -500;
        constexpr int32_t kWriters = 4;
        constexpr int32_t kUsualServices = tests::usualOrReduced(10'000, 2'000);
        const int32_t share = numberFrom("QVHOST_TEST_SERVICES", kUsualServices) / kWriters;
        for (int32_t i = 0; i < kWriters; ++i) {
            writers_.emplace_back(kFirst + i * share, share, static_cast<unsigned>(i));
        }
    }

    // Lets the writers work. `await` returns at the moment of the kill.
    template <typename Await>
    void workUntil(Await await) {
        answers_ = 0;
        std::vector<std::thread> threads;
        threads.reserve(writers_.size());
        for (Writer& writer : writers_) {
            threads.emplace_back([this, &writer] { writer.run(host_.socket(), answers_); });
        }
        await();
        host_.signal(SIGKILL);
        for (std::thread& thread : threads) {
            thread.join();
        }
        host_.wait();
        for (const Writer& writer : writers_) {
            ASSERT_EQ(writer.complaint(), "");
        }
    }

    // Waits for that many answers to the writers.
    void awaitAnswers(int count) const {
        // The bound makes a test fail that waits for nothing.
        const auto never = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (answers_ < count && std::chrono::steady_clock::now() < never) {
            std::this_thread::yield();
        }
    }

    // Lets the host work for up to two milliseconds, in which it saves.
    void workALittle() { std::this_thread::sleep_for(std::chrono::microseconds(random_() % 2000)); }

    void expectEveryAcknowledgedChange() {
        std::vector<Writer::Share> shares(writers_.size());
        for (const auto& [id, address] : DirectoryClient(host_).list()) {
            bool isOwned = false;
            for (std::size_t i = 0; i < writers_.size(); ++i) {
                if (writers_[i].owns(id)) {
                    shares[i][id] = address;
                    isOwned = true;
                }
            }
            ASSERT_TRUE(isOwned) << "service " << id << " never was";
        }
        for (std::size_t i = 0; i < writers_.size(); ++i) {
            const Writer::Share acknowledged = writers_[i].share();
            if (!writers_[i].explains(shares[i])) {
                reportDifference(acknowledged, shares[i]);
            }
        }
    }

    static void reportDifference(const Writer::Share& acknowledged, const Writer::Share& listed) {
        int differences = 0;
        std::string examples;
        const auto note = [&](int32_t id, const std::string& what) {
            constexpr int kExamples = 5;
            if (++differences <= kExamples) {
                examples += "\n  service " + std::to_string(id) + " " + what;
            }
        };
        for (const auto& [id, address] : acknowledged) {
            const auto found = listed.find(id);
            if (found == listed.end()) {
                note(id, "is gone");
            } else if (found->second != address) {
                note(id, "has " + found->second + ", acknowledged was " + address);
            }
        }
        for (const auto& [id, address] : listed) {
            if (acknowledged.count(id) == 0) {
                note(id, "is there with " + address);
            }
        }
        ADD_FAILURE() << differences
                      << " services differ, of which a few were on their way:" << examples;
    }

    HostProcess host_;
    std::vector<Writer> writers_;
    std::atomic<int> answers_ = 0;
    std::mt19937 random_{20'260'101};
};

TEST_F(KilledHost, HasEveryAcknowledgedChangeAndNothingElse) {
    constexpr unsigned kMostAnswers = tests::usualOrReduced(400, 100);
    const int kills = numberFrom("QVHOST_TEST_KILLS", 15);
    const DirectoryWatch watch(directoryOf(host_));
    int answers = 0;
    ASSERT_TRUE(host_.start());
    for (int kill = 0; kill < kills; ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        workUntil([&] {
            awaitAnswers(1 + static_cast<int>(random_() % kMostAnswers));
            // Two of three kills meet the plug-in while it saves.
            if (kill % 3 != 0) {
                watch.await("namingService.conf.plist");
                workALittle();
            }
        });
        answers += answers_;
        // One of five starts is interrupted also.
        if (kill % 5 == 4) {
            host_.launch();
            watch.await("namingService.conf.plist.record");
            workALittle();
            host_.signal(SIGKILL);
            host_.wait();
        }
        ASSERT_TRUE(host_.start()) << host_.errors();
        expectEveryAcknowledgedChange();
        ASSERT_FALSE(HasFailure());
    }
    const tests::Services last = DirectoryClient(host_).list();
    EXPECT_EQ(stop(host_), 0);
    // A failure must not print the services.
    EXPECT_TRUE(servicesIn(configurationOf(host_)) == last);
    std::printf("%d kills, %d acknowledged requests\n", kills, answers);
}

}  // namespace
}  // namespace qv::host
