// SPDX-License-Identifier: Apache-2.0

// Tests `qvhost get` and `qvhost wait`.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "qvhost/PseudoTerminal.h"
#include "qvhost/cli/QvhostClient.h"

namespace qv::host {
namespace {

class QvhostGet : public QvhostClient {
  protected:
    // Returns when a client has asked the host for a subscription.
    void waitForSubscriber() {
        const std::string status = "\"subscribe\":1";
        while (done({"status", "--json"}).find(status) == std::string::npos) {
        }
    }
};

TEST_F(QvhostGet, PrintsTheAddressesInTheOrderOfTheIdentifiers) {
    done({"register", "1", "/run/a sock", "-2", "b", "3", "c\x1b"});
    EXPECT_EQ(done({"get", "1"}), "/run/a sock\n");
    EXPECT_EQ(done({"get", "3", "1", "-2"}), "c\x1b\n/run/a sock\nb\n");
}

TEST_F(QvhostGet, NamesWhatIsMissing) {
    done({"register", "1", "a", "3", "c"});
    const ProgramOutcome outcome = run({"get", "3", "2", "1", "-5"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "c\na\n");
    EXPECT_EQ(outcome.err,
              "qvhost: service 2 is not registered\nqvhost: service -5 is not registered\n");
}

TEST_F(QvhostGet, DrivesNoTerminal) {
    done({"register", "1", "\x1b[31m"});
    const PseudoTerminal terminal;
    program_.setOutput(terminal.path().c_str());
    run({"get", "1"});
    EXPECT_EQ(terminal.readUntil("31m\r\n"), "\\x1b[31m\r\n");
}

TEST_F(QvhostGet, WaitPrintsAtOnceWhatIsThere) {
    done({"register", "1", "a", "2", "b"});
    EXPECT_EQ(done({"wait", "2", "1", "--timeout", "60"}), "b\na\n");
}

TEST_F(QvhostGet, WaitEndsWhenAllServicesAreThere) {
    ProgramRun waiting;
    waiting.start(withSocket({"wait", "2", "1"}));
    waitForSubscriber();
    done({"register", "1", "a"});
    done({"unregister", "1"});
    done({"register", "2", "b"});
    done({"register", "1", "c"});
    EXPECT_EQ(waiting.readUntil("c\n"), "b\nc\n");
    EXPECT_EQ(waiting.finish().status, 0);
}

TEST_F(QvhostGet, WaitEndsWithTheTime) {
    done({"register", "1", "a"});
    const ProgramOutcome one = run({"wait", "7", "--timeout", "0.02"});
    EXPECT_EQ(one.status, 1);
    EXPECT_EQ(one.out, "");
    EXPECT_EQ(one.err, "qvhost: service 7 was not registered within 0.02 seconds\n");
    EXPECT_EQ(run({"wait", "1", "7", "--timeout", "0.02"}).err,
              "qvhost: one of the services 1, 7 was not registered within 0.02 seconds\n");
}

}  // namespace
}  // namespace qv::host
