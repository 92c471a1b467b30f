// SPDX-License-Identifier: Apache-2.0

// Checks the properties of the fuzz target for known inputs. With a folder as its argument, the
// program writes seeds of the fuzzer there instead.
#include "client/ClientMessageProperties.h"

#include <gtest/gtest.h>

#include <string>

#include "HostEvents.h"
#include "client/ClientCalls.h"
#include "support/Corpus.h"

namespace qv::tests {
namespace {

TEST(ClientMessageProperties, HoldForTheCorpus) {
    checkCorpus("client_messages_fuzz", fuzz::checkClientMessages);
}

void writeSeeds(const std::string& folder) {
    const auto write = [&](const std::string& name, fuzz::HostMessage type,
                           const std::string& bytes) {
        writeSeed(folder, name, static_cast<char>(type) + bytes);
    };
    using fuzz::HostMessage;
    write("snapshot", HostMessage::Event, snapshot(5, {{1, "a"}, {-2, "b"}}).SerializeAsString());
    WireEvent change = registration(6, {{3, "c"}});
    change.MergeFrom(move(6, {1, "d"}));
    change.MergeFrom(withdrawal(6, {-2, 300}));
    write("change", HostMessage::Event, change.SerializeAsString());
    write("services", HostMessage::Services, listOf({{1, "a"}, {-2, "b"}}));
    host::wire::HostHello hello;
    hello.set_edition(2);
    hello.set_version("1.2.3");
    hello.add_commands(5);
    write("hello", HostMessage::Hello, hello.SerializeAsString());
    host::wire::HostStatus status;
    status.set_kept(true);
    status.mutable_file()->set_path("/a");
    write("status", HostMessage::Status, status.SerializeAsString());
}

}  // namespace
}  // namespace qv::tests

int main(int argc, char* argv[]) {
    return qv::tests::testOrWriteSeeds(argc, argv, {qv::tests::writeSeeds});
}
