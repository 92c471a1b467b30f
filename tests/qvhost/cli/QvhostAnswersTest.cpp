// SPDX-License-Identifier: Apache-2.0

// Tests what the subcommands print for answers that a real host gives seldom or never.
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <future>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "QvHost.pb.h"
#include "client/ClientCalls.h"
#include "client/ScriptedServer.h"
#include "qvhost/ProgramRun.h"

namespace qv::host {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using tests::answering;
using tests::listOf;
using tests::Peer;
using tests::Request;
using tests::ScriptedServer;
using Arguments = std::vector<std::string>;

// Runs the program as a client of a server that gives these answers.
ProgramOutcome runWith(const ScriptedServer::Script& script, Arguments arguments,
                       const std::string& input = "") {
    const ScriptedServer server({script});
    arguments.insert(arguments.begin(), {"--socket", server.path()});
    return ProgramRun().run(arguments, input);
}

TEST(QvhostAnswers, ListsAddressesThatNobodyCouldRegister) {
    const ScriptedServer::Script script =
        answering(QV_OK, listOf({{1, "a,b"}, {2, "\x1b\xff"}, {3, ""}}));
    EXPECT_EQ(runWith(script, {"list", "--csv"}).out,
              "id,address\n1,\"a,b\"\n2,\x1b\xef\xbf\xbd\n3,\n");
    EXPECT_EQ(json::parse(runWith(script, {"--json", "list"}).out),
              json::array({{{"id", 1}, {"address", "a,b"}},
                           {{"id", 2}, {"address", "\x1b\xef\xbf\xbd"}},
                           {{"id", 3}, {"address", ""}}}));
    EXPECT_EQ(runWith(script, {"list"}).out, "ID  ADDRESS\n 1  a,b\n 2  \\x1b\\xff\n 3  \n");
}

TEST(QvhostAnswers, WordsOfTheHostAreEscapedOnce) {
    const std::string words = "a\\x1b \n";
    EXPECT_EQ(runWith(answering(QV_HOST_ERROR_REFUSED, words), {"ping"}).err,
              "qvhost: cannot ping the host: the host refused: a\\x1b \\n\n");
    EXPECT_THAT(runWith(answering(QV_HOST_ERROR_NOT_KEPT, words), {"unregister", "1"}).err,
                StartsWith("qvhost: not kept: a\\x1b \\n; "));
}

TEST(QvhostAnswers, ExportLosesNoBytesUntold) {
    const ScriptedServer::Script script =
        answering(QV_OK, listOf({{1, "a"}, {5, "b\xff"}, {9, "\xc3"}}));
    const TestFiles files;
    for (const char* format : {"csv", "json"}) {
        const ProgramOutcome outcome =
            runWith(script, {"export", files.path("out.txt"), "--format", format});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(
            outcome.err,
            "qvhost: nothing exported: the addresses of 5, 9 are not UTF-8 (use --replace)\n");
        EXPECT_FALSE(std::filesystem::exists(files.path("out.txt")));
    }
    EXPECT_EQ(runWith(script, {"export", "--replace"}).out,
              "id,address\n1,a\n5,b\xef\xbf\xbd\n9,\xef\xbf\xbd\n");
}

TEST(QvhostAnswers, ChangeThatIsNotKeptIsToldAndFails) {
    const ScriptedServer::Script script = answering(QV_HOST_ERROR_NOT_KEPT, "the disk is full");
    const ProgramOutcome registered = runWith(script, {"register", "1", "a"});
    EXPECT_EQ(registered.status, 1);
    EXPECT_EQ(registered.out, "");
    EXPECT_EQ(registered.err,
              "qvhost: not kept: the disk is full; the services are registered, but a restart of "
              "the host may lose them\n");
    const ProgramOutcome removed = runWith(script, {"unregister", "1"});
    EXPECT_EQ(removed.status, 1);
    EXPECT_EQ(removed.err,
              "qvhost: not kept: the disk is full; the services are removed, but a restart of the "
              "host may bring them back\n");
}

// Returns a function that answers the requests with these results and records their commands.
ScriptedServer::Script recording(std::vector<uint32_t>& commands,
                                 const std::vector<uint32_t>& results) {
    return [&commands, results](Peer& peer) {
        for (const uint32_t result : results) {
            const Request request = peer.receive();
            commands.push_back(request.command);
            peer.answer(result, result == QV_OK ? "" : "the disk is full", request.number);
        }
        peer.waitForEnd();
    };
}

std::string servicesToImport(int count) {
    std::string csv = "id,address\n";
    for (int id = 1; id <= count; ++id) {
        csv += std::to_string(id) + ",a\n";
    }
    return csv;
}

TEST(QvhostAnswers, ImportCountsTheServicesThatAreNotKept) {
    std::vector<uint32_t> commands;
    const ProgramOutcome outcome =
        runWith(recording(commands, {QV_OK, QV_HOST_ERROR_NOT_KEPT, QV_HOST_ERROR_NOT_KEPT}),
                {"import", "-"}, servicesToImport(2500));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "registered 2500 services\n");
    EXPECT_EQ(outcome.err,
              "qvhost: not kept: the disk is full; 1500 of 2500 services are registered, but a "
              "restart of the host may lose them\n");
}

TEST(QvhostAnswers, ImportThatFailsTellsWhatIsNotKept) {
    std::vector<uint32_t> commands;
    const ProgramOutcome outcome =
        runWith(recording(commands, {QV_HOST_ERROR_NOT_KEPT, QV_OK, QV_HOST_ERROR_REFUSED}),
                {"import", "-"}, servicesToImport(2500));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "qvhost: cannot register 500 services: the host refused: the disk is full; 2000 of "
              "2500 are registered, 1000 of them are not kept: the disk is full\n");
}

TEST(QvhostAnswers, ImportThatIsInterruptedSaysHowFarItCame) {
    std::promise<void> received;
    std::promise<void> interrupted;
    const ScriptedServer server({[&](Peer& peer) {
        const Request first = peer.receive();
        received.set_value();
        interrupted.get_future().wait();
        peer.answer(QV_HOST_ERROR_NOT_KEPT, "the disk is full", first.number);
        EXPECT_EQ(peer.receive().number, 0U);
    }});
    const TestFiles files;
    ProgramRun program;
    program.start(
        {"--socket", server.path(), "import", files.write("a.csv", servicesToImport(2500))});
    received.get_future().wait();
    program.signal(SIGINT);
    interrupted.set_value();
    const ProgramOutcome outcome = program.finish();
    EXPECT_EQ(outcome.status, 128 + SIGINT);
    EXPECT_EQ(outcome.err,
              "qvhost: interrupted; 1000 of 2500 are registered, 1000 of them are not kept: the "
              "disk is full\n");
}

TEST(QvhostAnswers, RegistrationWaitsForTheFileIfToldTo) {
    constexpr uint32_t kRegister = QV_COMMAND_REGISTER_SERVICES;
    constexpr uint32_t kSync = QV_HOST_COMMAND_SYNC;
    std::vector<uint32_t> commands;
    EXPECT_EQ(runWith(recording(commands, {QV_OK}), {"register", "1", "a"}).status, 0);
    EXPECT_THAT(commands, ElementsAre(kRegister));
    commands.clear();
    EXPECT_EQ(runWith(recording(commands, {QV_OK, QV_OK}), {"register", "--sync", "1", "a"}).status,
              0);
    EXPECT_THAT(commands, ElementsAre(kRegister, kSync));
}

// The plug-in's file may hold what the record cannot.
TEST(QvhostAnswers, RegistrationThatIsNotKeptWaitsForTheFileAsWell) {
    std::vector<uint32_t> commands;
    const ProgramOutcome outcome = runWith(recording(commands, {QV_HOST_ERROR_NOT_KEPT, QV_OK}),
                                           {"register", "--sync", "1", "a"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, StartsWith("qvhost: not kept: the disk is full; "));
    EXPECT_THAT(commands, ElementsAre(QV_COMMAND_REGISTER_SERVICES, QV_HOST_COMMAND_SYNC));
}

TEST(QvhostAnswers, SyncTellsWhyTheFileDoesNotFollow) {
    const ProgramOutcome done = runWith(answering(QV_OK, ""), {"sync"});
    EXPECT_EQ(done.status, 0);
    EXPECT_EQ(done.out + done.err, "");
    const ProgramOutcome outcome =
        runWith(answering(QV_HOST_ERROR_FILE, "it is read-only"), {"sync"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(
        outcome.err,
        "qvhost: cannot bring the plug-in's file up to the directory: the host refused: it is "
        "read-only\n");
}

TEST(QvhostAnswers, LevelIsForOthers) {
    const ProgramOutcome outcome = runWith(
        answering(QV_HOST_ERROR_PRIVILEGE, "only root and the host's own user may set the level"),
        {"level", "7"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              "qvhost: cannot set the debug level to 7: the host refused: only root and the host's "
              "own user may set the level\n");
}

std::string statusThatIs(bool isKept) {
    wire::HostStatus status;
    status.set_version("1.2.3");
    status.set_kept(isKept);
    status.set_not_kept_reason(isKept ? "" : "the disk is full");
    return status.SerializeAsString();
}

TEST(QvhostAnswers, StatusSucceedsIfTheDirectoryIsKept) {
    const ProgramOutcome outcome = runWith(answering(QV_OK, statusThatIs(true)), {"status"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("version 1.2.3"), HasSubstr("\nkept      yes\n")));
}

TEST(QvhostAnswers, StatusFailsIfTheDirectoryIsNotKept) {
    const ProgramOutcome table = runWith(answering(QV_OK, statusThatIs(false)), {"status"});
    EXPECT_EQ(table.status, 1);
    EXPECT_THAT(table.out, HasSubstr("\nkept      no: the disk is full\n"));
    const ProgramOutcome outcome =
        runWith(answering(QV_OK, statusThatIs(false)), {"status", "--json"});
    EXPECT_EQ(outcome.status, 1);
    const json status = json::parse(outcome.out);
    EXPECT_EQ(status.at("kept"), false);
    EXPECT_EQ(status.at("notKeptReason"), "the disk is full");
}

TEST(QvhostAnswers, EveryCommandBoundsTheTimeOfTheHost) {
    for (const Arguments& arguments : std::vector<Arguments>{{"status"},
                                                             {"sync"},
                                                             {"ping"},
                                                             {"list"},
                                                             {"export"},
                                                             {"register", "1", "a"},
                                                             {"unregister", "1"},
                                                             {"level", "1"},
                                                             {"import", "-"}}) {
        Arguments bounded = {"--timeout", "0.02"};
        bounded.insert(bounded.end(), arguments.begin(), arguments.end());
        const ProgramOutcome outcome =
            runWith([](Peer& peer) { peer.waitForEnd(); }, bounded, "id,address\n1,a\n");
        EXPECT_EQ(outcome.status, 1) << arguments.front();
        EXPECT_EQ(outcome.out, "") << arguments.front();
        EXPECT_THAT(outcome.err, HasSubstr("the host did not answer in time"));
    }
}

TEST(QvhostAnswers, StatusFailsIfTheAnswerIsBroken) {
    const ProgramOutcome outcome = runWith(answering(QV_OK, "\x0a"), {"status", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("it is no status"));
}

}  // namespace
}  // namespace qv::host
