// SPDX-License-Identifier: Apache-2.0

// Tests `qvhost run`.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "qvhost/cli/QvhostClient.h"

namespace qv::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class QvhostRun : public QvhostClient {
  protected:
    static Arguments runOf(const std::string& script) {
        return {"run", "7", "/run/a.sock", "--", "sh", "-c", script};
    }
};

TEST_F(QvhostRun, ServiceIsRegisteredWhileTheCommandRuns) {
    const ProgramOutcome outcome =
        run(runOf(QVHOST_PROGRAM " list --csv --socket " + host_.socket() + "; exit 3"));
    EXPECT_EQ(outcome.out, "id,address\n7,/run/a.sock\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(done({"list"}), "no services\n");
}

TEST_F(QvhostRun, CommandGetsItsArgumentsAndTheInput) {
    EXPECT_EQ(done({"run", "-7", "a", "--", "printf", "%s.", "--", "-x", "[a,b]", ""}),
              "--.-x.[a,b]..");
    EXPECT_EQ(done({"run", "7", "a", "--", "cat"}, "in"), "in");
}

TEST_F(QvhostRun, SignalsGoOnToTheCommand) {
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2}) {
        ProgramRun program;
        program.start(withSocket(runOf("echo ready; exec sleep 60")));
        program.readUntil("ready\n");
        program.signal(number);
        EXPECT_EQ(program.finish().status, 128 + number);
        EXPECT_EQ(done({"list"}), "no services\n");
    }
}

TEST_F(QvhostRun, CommandMayGoOnAfterASignal) {
    program_.start(withSocket(runOf("trap 'echo got' TERM; echo ready; read x; read x; exit 5")));
    program_.readUntil("ready\n");
    program_.signal(SIGTERM);
    EXPECT_EQ(program_.readUntil("got\n"), "got\n");
    program_.write("\n\n");
    EXPECT_EQ(program_.finish().status, 5);
    EXPECT_EQ(done({"list"}), "no services\n");
}

TEST_F(QvhostRun, CommandHasTheSignalsAsOthersHaveThem) {
    EXPECT_EQ(run(runOf("kill -PIPE $$")).status, 128 + SIGPIPE);
    EXPECT_EQ(run(runOf("kill -TERM $$")).status, 128 + SIGTERM);
    EXPECT_EQ(run(runOf("kill -KILL $$")).status, 128 + SIGKILL);
    EXPECT_EQ(done({"list"}), "no services\n");
}

TEST_F(QvhostRun, CommandThatCannotRunLeavesNoService) {
    const ProgramOutcome missing = run({"run", "7", "a", "--", path("none")});
    EXPECT_EQ(missing.status, 127);
    EXPECT_EQ(missing.err, "qvhost: cannot run " + path("none") + ": No such file or directory\n");
    const ProgramOutcome text = run({"run", "7", "a", "--", program_.files().write("text", "x")});
    EXPECT_EQ(text.status, 126);
    EXPECT_THAT(text.err, HasSubstr("text: Permission denied\n"));
    EXPECT_EQ(done({"list"}), "no services\n");
}

TEST_F(QvhostRun, HostThatIsAwayAtTheEndChangesNoStatus) {
    program_.start(withSocket(runOf("echo ready; read x; exit 4")));
    program_.readUntil("ready\n");
    host_.signal(SIGTERM);
    EXPECT_EQ(host_.wait(), 0);
    program_.write("\n");
    const ProgramOutcome outcome = program_.finish();
    EXPECT_EQ(outcome.status, 4);
    EXPECT_THAT(outcome.err,
                AllOf(StartsWith("qvhost: service 7 may still be registered: cannot reach the "
                                 "host at "),
                      HasSubstr("; remove it with `qvhost unregister 7`\n")));
}

TEST_F(QvhostRun, AddressOfAnotherProcessStays) {
    program_.start(withSocket(runOf("echo ready; read x")));
    program_.readUntil("ready\n");
    ProgramRun other;
    EXPECT_EQ(other.run(withSocket({"register", "7", "/run/b.sock"})).status, 0);
    program_.write("\n");
    const ProgramOutcome outcome = program_.finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "qvhost: service 7 has another address now, and stays\n");
    EXPECT_EQ(done({"list"}), "ID  ADDRESS\n 7  /run/b.sock\n");
}

TEST_F(QvhostRun, ServiceThatSomebodyRemovedIsNoMistake) {
    EXPECT_EQ(done(runOf(QVHOST_PROGRAM " unregister 7 --socket " + host_.socket())), "");
}

TEST_F(QvhostRun, WithoutRegistrationThereIsNoCommand) {
    const ProgramOutcome wrong = run({"run", "x", "a", "--", "echo", "ran"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.out, "");
    EXPECT_EQ(run({"run", "7", "", "--", "echo", "ran"}).status, 2);
    EXPECT_THAT(run({"run", "7", "a"}).err, HasSubstr("run needs COMMAND (see qvhost run --help)"));
    host_.signal(SIGTERM);
    EXPECT_EQ(host_.wait(), 0);
    const ProgramOutcome away = run({"run", "7", "a", "--", "echo", "ran"});
    EXPECT_EQ(away.status, 1);
    EXPECT_EQ(away.out, "");
    EXPECT_THAT(away.err, HasSubstr("is `qvhost serve` running?"));
}

}  // namespace
}  // namespace qv::host
