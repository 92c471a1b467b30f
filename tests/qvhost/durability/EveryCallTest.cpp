// SPDX-License-Identifier: Apache-2.0

// Makes each system call fail that a host makes on its files, and kills the host before each change
// and within each write. The host starts, registers, withdraws, brings the file up and stops. The
// next host has every acknowledged change, and of other requests all or nothing.
//
// The ordinary run strikes some of the calls. A long run strikes all of them:
//
//     QVHOST_TEST_EVERY_CALL=1 qvhost_durability_test --gtest_filter='*EveryCallOfAHost*'
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/durability/CrashClient.h"
#include "qvhost/durability/DirectoryClient.h"
#include "qvhost/durability/HostFiles.h"
#include "qvhost/durability/HostTracer.h"
#include "support/TemporaryDirectory.h"

namespace qv::host {
namespace {

using testing::AnyOf;
using tests::Services;

// The services that a host has before it is struck.
const Services kServices = manyServices(1, 5);

class EveryCallOfAHost : public testing::Test {
  protected:
    // Returns the distance from one struck call to the next.
    static int stride(int usual) {
        return std::getenv("QVHOST_TEST_EVERY_CALL") == nullptr ? usual : 1;
    }

    void SetUp() override {
        HostProcess host;
        ASSERT_TRUE(host.start());
        {
            const DirectoryClient client(host);
            ASSERT_EQ(client.registerServices(kServices).code, kDone);
            ASSERT_EQ(client.sync().code, kDone);
        }
        host.signal(SIGKILL);
        host.wait();
        std::filesystem::copy(directoryOf(host), killed_.path(),
                              std::filesystem::copy_options::recursive);
    }

    // Strikes calls, from the first one until the host makes no further ones.
    template <typename MakeStrike>
    void sweep(int first, int stride, MakeStrike makeStrike) {
        int strikes = 0;
        for (int call = first;; call += stride) {
            const std::string struck = play(makeStrike(call));
            if (struck.empty()) {
                break;
            }
            ++strikes;
            ASSERT_FALSE(HasFailure()) << "call " << call << ", " << struck;
        }
        EXPECT_GT(strikes, 5);
        std::printf("%d calls struck\n", strikes);
    }

    // Returns the call that was struck, or an empty text.
    std::string play(const Strike& strike) {
        HostProcess host;
        std::filesystem::copy(killed_.path(), directoryOf(host),
                              std::filesystem::copy_options::recursive |
                                  std::filesystem::copy_options::overwrite_existing);
        possible_ = {kServices};
        isCertain_ = true;
        std::string struck;
        {
            HostTracer tracer(host, strike);
            if (host.start()) {
                use(host);
                host.signal(SIGTERM);
            }
            const int status = host.wait();
            struck = tracer.ended().struck;
            // A host that does not serve says why.
            EXPECT_TRUE(status == 128 + SIGKILL || !host.errors().empty());
            EXPECT_THAT(status, AnyOf(0, 1, 2, 128 + SIGKILL)) << struck << "\n" << host.errors();
        }
        if (!host.start()) {
            ADD_FAILURE() << struck << "\n" << host.errors();
            return struck;
        }
        const DirectoryClient client(host);
        const Services listed = client.list();
        EXPECT_THAT(possible_, testing::Contains(listed)) << struck;
        EXPECT_EQ(client.sync().code, kDone) << struck;
        EXPECT_EQ(servicesIn(configurationOf(host)), listed) << struck;
        return struck;
    }

    void use(const HostProcess& host) {
        std::optional<CrashClient> client;
        try {
            client.emplace(host.socket());
        } catch (const std::system_error&) {
            return;  // the host was killed
        }
        change(*client, QV_COMMAND_REGISTER_SERVICES,
               {{-7, "unix:/run/first.sock"}, {3, "unix:/run/other.sock"}});
        change(*client, QV_COMMAND_UNREGISTER_SERVICES, {{1, ""}, {5, ""}});
        if (client->send(QV_HOST_COMMAND_SYNC, "")) {
            static_cast<void>(client->receive());
        }
        change(*client, QV_COMMAND_REGISTER_SERVICES, {{8, "unix:/run/last.sock"}});
    }

    // Sends a change and follows which directories the next host may have.
    void change(const CrashClient& client, uint32_t command, const Services& services) {
        if (!client.send(command, tests::encode(services))) {
            return;
        }
        const std::optional<RawAnswer> answer = client.receive();
        std::vector<Services> changed;
        changed.reserve(possible_.size());
        for (const Services& directory : possible_) {
            changed.push_back(after(directory, command, services));
        }
        const bool isMade = answer && (answer->code == kDone || answer->code == kNotKept);
        if (isMade && isCertain_ && answer->code == kDone) {
            // The host now keeps everything that it has.
            possible_ = {changed.back()};
        } else if (answer && answer->code == kDone) {
            possible_ = changed;
        } else {
            possible_.insert(possible_.end(), changed.begin(), changed.end());
        }
        isCertain_ = isCertain_ && isMade;
    }

    static Services after(const Services& directory, uint32_t command, const Services& services) {
        if (command == QV_COMMAND_REGISTER_SERVICES) {
            return merged(directory, services);
        }
        Services left;
        for (const auto& service : directory) {
            const auto isSame = [&](const auto& other) { return other.first == service.first; };
            if (std::none_of(services.begin(), services.end(), isSame)) {
                left.push_back(service);
            }
        }
        return left;
    }

    tests::TemporaryDirectory killed_;  // the files of a host that was killed
    // The directories that the next host may have. The last one has all changes.
    std::vector<Services> possible_;
    // The host has told of every change that it made the change.
    bool isCertain_ = true;
};

class EveryCallOfAHostWithError : public EveryCallOfAHost,
                                  public testing::WithParamInterface<int> {};

constexpr int kErrors[] = {EIO, ENOSPC, EMFILE, ENOMEM};
constexpr auto kErrorCount = static_cast<int>(std::size(kErrors));

// The parameter is an error's place. Each error strikes other calls than the errors before.
TEST_P(EveryCallOfAHostWithError, MayFail) {
    constexpr int kUsualStride = 16;
    const int error = kErrors[GetParam()];
    const int first = GetParam() * kUsualStride / kErrorCount;
    sweep(first % stride(kUsualStride), stride(kUsualStride),
          [error](int call) { return Strike::fail(call, error); });
}

INSTANTIATE_TEST_SUITE_P(Errors, EveryCallOfAHostWithError, testing::Range(0, kErrorCount));

TEST_F(EveryCallOfAHost, MayBeTheLastOne) {
    sweep(0, stride(3), [](int call) { return Strike::killBefore(call); });
}

TEST_F(EveryCallOfAHost, MayBeTheLastOneAndWriteHalf) {
    sweep(0, stride(2), [](int call) { return Strike::killWithin(call); });
}

}  // namespace
}  // namespace qv::host
