// Tests what the subcommands print for answers that a real host gives seldom or never.
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "client/ClientCalls.h"
#include "client/ScriptedServer.h"
#include "qvhost/ProgramRun.h"

namespace qv::host {
namespace {

using nlohmann::json;
using tests::answering;
using tests::listOf;
using tests::Peer;
using tests::ScriptedServer;
using Arguments = std::vector<std::string>;

// Runs the program as a client of a server that gives these answers.
Outcome runWith(const ScriptedServer::Script& script, Arguments arguments,
                const std::string& input = "") {
    const ScriptedServer server({script});
    arguments.insert(arguments.begin(), {"--socket", server.path()});
    return ProgramRun().run(arguments, input);
}

TEST(QvhostAnswers, ListsAddressesThatNobodyCouldRegister) {
    const ScriptedServer::Script script =
        answering(QV_OK, listOf({{1, "a,b"}, {2, "\x1b\xff"}, {3, ""}}));
    EXPECT_EQ(runWith(script, {"list", "--csv"}).out,
              "id,address\r\n1,\"a,b\"\r\n2,\x1b\xef\xbf\xbd\r\n3,\r\n");
    EXPECT_EQ(json::parse(runWith(script, {"--json", "list"}).out),
              json::array({{{"id", 1}, {"address", "a,b"}},
                           {{"id", 2}, {"address", "\x1b\xef\xbf\xbd"}},
                           {{"id", 3}, {"address", ""}}}));
    EXPECT_EQ(runWith(script, {"list"}).out, "ID  ADDRESS\n 1  a,b\n 2  \\x1b\\xff\n 3  \n");
}

TEST(QvhostAnswers, ExportLosesNoBytesUntold) {
    const ScriptedServer::Script script =
        answering(QV_OK, listOf({{1, "a"}, {5, "b\xff"}, {9, "\xc3"}}));
    const TestFiles files;
    for (const char* format : {"csv", "json"}) {
        const Outcome outcome =
            runWith(script, {"export", files.path("out.txt"), "--format", format});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(
            outcome.err,
            "qvhost: nothing exported: the addresses of 5, 9 are not UTF-8 (use --replace)\n");
        EXPECT_FALSE(std::filesystem::exists(files.path("out.txt")));
    }
    EXPECT_EQ(runWith(script, {"export", "--replace"}).out,
              "id,address\r\n1,a\r\n5,b\xef\xbf\xbd\r\n9,\xef\xbf\xbd\r\n");
}

}  // namespace
}  // namespace qv::host
