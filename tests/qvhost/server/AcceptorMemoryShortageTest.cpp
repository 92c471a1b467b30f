// SPDX-License-Identifier: Apache-2.0

// Lets memory run out while clients wait to be accepted.
#include <gtest/gtest.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <utility>
#include <vector>

#include "qvhost/RawClient.h"
#include "qvhost/TestFiles.h"
#include "server/Acceptor.h"
#include "server/ListeningSocket.h"
#include "support/FailingCalls.h"

namespace qv::host {
namespace {

TEST(AcceptorShortage, GoesOnWhenThereIsMemoryAgain) {
    const TestFiles files;
    ListeningSocket socket(files.path("a.sock"), false);
    socket.listen();
    asio::io_context control{1};
    ClientThreads threads(1);
    ClientList clients(10, ::geteuid());
    Counts counts;
    const ServerSettings settings;
    std::vector<ClientSocket> served;
    served.reserve(10);
    Acceptor acceptor(control, threads, socket.release(), clients, counts, settings,
                      [&](ClientSocket client, uid_t /*user*/, ClientThread& /*thread*/) {
                          served.push_back(std::move(client));
                      });
    acceptor.start();
    control.poll();
    int failures = 0;
    for (; served.empty(); ++failures) {
        const RawClient client(socket.path());
        tests::failEveryMallocAfter(failures);
        control.run_one();
        if (!tests::mallocFailed()) {
            break;
        }
        // Nothing but the end of the pause is waited for.
        control.run_one();
    }
    EXPECT_GE(failures, 2);
    EXPECT_EQ(served.size(), 1U);
}

}  // namespace
}  // namespace qv::host
