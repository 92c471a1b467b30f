// SPDX-License-Identifier: Apache-2.0

// Tests how a client reads the status of a host.
#include <QvClient.h>
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "ClientCalls.h"
#include "QvHost.pb.h"
#include "ScriptedServer.h"

namespace qv::client {
namespace {

using std::chrono::microseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using tests::answering;
using tests::Failure;
using tests::failureOf;
using tests::noting;
using tests::Request;
using tests::ScriptedServer;
using Time = HostStatus::Time;

constexpr int64_t kLowest = std::numeric_limits<int64_t>::min();
constexpr int64_t kHighest = std::numeric_limits<int64_t>::max();

void addCount(google::protobuf::RepeatedPtrField<host::wire::HostCount>* counts, uint32_t code,
              uint64_t count) {
    host::wire::HostCount* const added = counts->Add();
    added->set_code(code);
    added->set_count(count);
}

// Returns a status in which every field has a value of its own.
host::wire::HostStatus fullStatus() {
    host::wire::HostStatus status;
    status.set_version("1.2.3");
    status.set_start_time(1);
    status.set_start("the record counts");
    status.set_services(2);
    status.set_address_bytes(3);
    status.set_revision(4);
    status.set_kept(false);
    status.set_not_kept_since(5);
    status.set_not_kept_reason("the disk is full");
    status.mutable_file()->set_path("/state/\xff.plist");
    status.mutable_file()->set_revision(6);
    status.mutable_file()->set_behind(7);
    status.mutable_file()->set_behind_since(8);
    status.mutable_file()->set_problem("it is damaged");
    status.mutable_commits()->set_count(9);
    status.mutable_commits()->set_changes(10);
    status.mutable_commits()->set_most_changes(11);
    status.mutable_commits()->set_longest_microseconds(12);
    status.mutable_commits()->set_under_way_microseconds(13);
    status.mutable_saves()->set_count(14);
    status.mutable_saves()->set_longest_microseconds(15);
    status.mutable_saves()->set_under_way_microseconds(16);
    status.set_clients(17);
    status.set_client_limit(18);
    status.set_subscribers(24);
    status.set_memory(19);
    status.set_memory_limit(20);
    status.set_level(0);
    addCount(status.mutable_requests(), QV_HOST_COMMAND_PING, 21);
    addCount(status.mutable_requests(), QV_COMMAND_REGISTER_SERVICES, 22);
    addCount(status.mutable_refusals(), QV_HOST_ERROR_FORBIDDEN, 23);
    return status;
}

HostStatus statusOf(const std::string& answer) {
    ScriptedServer server({answering(QV_OK, answer)});
    return Client(server.path()).status();
}

TEST(ClientStatus, IsAskedForWithACommandWithoutInput) {
    std::vector<Request> requests;
    {
        ScriptedServer server({noting(requests)});
        Client client(server.path());
        EXPECT_THROW(client.status(), Error);
    }
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].command, uint32_t{QV_HOST_COMMAND_STATUS});
    EXPECT_EQ(requests[0].input, "");
}

TEST(ClientStatus, HoldsWhatTheHostTells) {
    const HostStatus status = statusOf(fullStatus().SerializeAsString());
    EXPECT_EQ(status.version, "1.2.3");
    EXPECT_EQ(status.startTime, Time(seconds(1)));
    EXPECT_EQ(status.start, "the record counts");
    EXPECT_EQ(status.services, 2U);
    EXPECT_EQ(status.addressBytes, 3U);
    EXPECT_EQ(status.revision, 4);
    EXPECT_FALSE(status.isKept);
    EXPECT_EQ(status.notKeptSince, Time(seconds(5)));
    EXPECT_EQ(status.notKeptReason, "the disk is full");
    EXPECT_EQ(status.file.path, "/state/\xff.plist");
    EXPECT_EQ(status.file.revision, 6);
    EXPECT_EQ(status.file.behind, 7U);
    EXPECT_EQ(status.file.behindSince, Time(seconds(8)));
    EXPECT_EQ(status.file.problem, "it is damaged");
    EXPECT_EQ(status.commits.count, 9U);
    EXPECT_EQ(status.commits.changes, 10U);
    EXPECT_EQ(status.commits.mostChanges, 11U);
    EXPECT_EQ(status.commits.longest, microseconds(12));
    EXPECT_EQ(status.commits.underWay, microseconds(13));
    EXPECT_EQ(status.saves.count, 14U);
    EXPECT_EQ(status.saves.longest, microseconds(15));
    EXPECT_EQ(status.saves.underWay, microseconds(16));
    EXPECT_EQ(status.clients, 17U);
    EXPECT_EQ(status.clientLimit, 18U);
    EXPECT_EQ(status.subscribers, 24U);
    EXPECT_EQ(status.memory, 19U);
    EXPECT_EQ(status.memoryLimit, 20U);
    EXPECT_EQ(status.level, 0);
    EXPECT_THAT(status.requests, ElementsAre(Pair(QV_HOST_COMMAND_PING, 21),
                                             Pair(QV_COMMAND_REGISTER_SERVICES, 22)));
    EXPECT_THAT(status.refusals, ElementsAre(Pair(QV_HOST_ERROR_FORBIDDEN, 23)));
}

TEST(ClientStatus, MayLackEverythingButWhetherTheDirectoryIsKept) {
    host::wire::HostStatus message;
    message.set_kept(true);
    const HostStatus status = statusOf(message.SerializeAsString());
    EXPECT_TRUE(status.isKept);
    EXPECT_EQ(status.version, "");
    EXPECT_EQ(status.file.behind, 0U);
    EXPECT_FALSE(status.commits.underWay);
    EXPECT_FALSE(status.saves.underWay);
    EXPECT_FALSE(status.level);
    EXPECT_THAT(status.requests, IsEmpty());
}

TEST(ClientStatus, MayHoldFieldsThatTheClientDoesNotKnow) {
    constexpr char kField1000[] = "\xc2\x3e\x01x";
    EXPECT_EQ(statusOf(fullStatus().SerializeAsString() + kField1000).version, "1.2.3");
}

TEST(ClientStatus, TakesAnyNumbers) {
    host::wire::HostStatus message = fullStatus();
    for (const int64_t number : {kLowest, kHighest}) {
        message.set_start_time(number);
        message.set_revision(number);
        message.set_not_kept_since(number);
        message.mutable_file()->set_revision(number);
        message.mutable_file()->set_behind_since(number);
        message.mutable_commits()->set_longest_microseconds(number);
        message.mutable_commits()->set_under_way_microseconds(number);
        const HostStatus status = statusOf(message.SerializeAsString());
        EXPECT_EQ(status.startTime.time_since_epoch().count(), number);
        EXPECT_EQ(status.file.behindSince.time_since_epoch().count(), number);
        EXPECT_EQ(status.revision, number);
        EXPECT_EQ(status.commits.underWay, microseconds(number));
    }
}

TEST(ClientStatus, IsBrokenIfItIsNoStatus) {
    host::wire::HostStatus lacking = fullStatus();
    lacking.clear_kept();
    const std::string full = fullStatus().SerializeAsString();
    for (const std::string& answer :
         {std::string(), std::string("\x0a"), std::string("x"), std::string(100, '\xff'),
          lacking.SerializeAsString(), full.substr(0, full.size() - 1)}) {
        const Failure failure = failureOf([&] { statusOf(answer); });
        EXPECT_EQ(failure.kind, Error::Kind::BrokenAnswer);
        EXPECT_EQ(failure.text,
                  "cannot ask for the host's status: the host's answer is broken: it is no status");
    }
}

// Every part of a status ends in a field or between two fields.
TEST(ClientStatus, IsReadOrBrokenWhereverItEnds) {
    const std::string full = fullStatus().SerializeAsString();
    for (std::size_t length = 0; length < full.size(); ++length) {
        try {
            EXPECT_FALSE(statusOf(full.substr(0, length)).isKept) << length;
        } catch (const Error& error) {
            EXPECT_EQ(error.kind(), Error::Kind::BrokenAnswer) << length;
        }
    }
}

TEST(ClientStatus, IsUnknownToAHostWithoutTheCommand) {
    ScriptedServer server({answering(QV_HOST_ERROR_COMMAND, "no such command")});
    Client client(server.path());
    const Failure failure = failureOf([&] { client.status(); });
    EXPECT_EQ(failure.kind, Error::Kind::Refused);
    EXPECT_EQ(failure.text, "cannot ask for the host's status: the host refused: no such command");
}

}  // namespace
}  // namespace qv::client
