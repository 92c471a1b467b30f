// SPDX-License-Identifier: Apache-2.0

// Tests that clients do not notice a plug-in that is slow or fails.
#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <string>

#include "qvhost/HostProcess.h"
#include "qvhost/RawClient.h"
#include "qvhost/server/DirectoryRequests.h"
#include "qvhost/server/Pipe.h"
#include "support/ConfigurationDocuments.h"

namespace qv::host {
namespace {

using testing::HasSubstr;

TEST(ServePlugin, BlockedPluginDelaysOnlyThoseWhoAskForIt) {
    HostProcess host;
    host.disturbPlugin("");
    Pipe pipe(host);
    ASSERT_TRUE(host.start({"--threads", "1"}));
    const RawClient setter(host.socket());
    const RawClient syncer(host.socket());
    const RawClient client(host.socket());
    EXPECT_TRUE(client.works());
    host.setBehaviour("request waits at the pipe");
    ASSERT_TRUE(setter.send(frame(QV_COMMAND_SET_DEBUG_LEVEL, 1, kLevelInput) + frame(0, 2)));
    pipe.meetRequest();
    expectService(client, 1);
    ASSERT_TRUE(syncer.send(frame(QV_HOST_COMMAND_SYNC, 3)));
    expectService(RawClient(host.socket()), 3);
    host.setBehaviour("");
    pipe.letGo();
    EXPECT_EQ(setter.receive()->number, 1U);
    EXPECT_EQ(setter.receive()->number, 2U);
    EXPECT_EQ(syncer.receive()->code, uint32_t{QV_OK});
    EXPECT_EQ(readFile(host.configuration()), tests::documentOf({{2, "b"}, {4, "b"}}));
}

TEST(ServePlugin, FailingPluginIsReportedAndMadeUpFor) {
    for (const char* behaviour :
         {"request throws text", "request throws number", "request fails"}) {
        HostProcess host;
        host.disturbPlugin("");
        ASSERT_TRUE(host.start());
        const RawClient client(host.socket());
        host.setBehaviour(behaviour);
        expectService(client, 1);
        const std::optional<RawAnswer> answer = client.ask(QV_HOST_COMMAND_SYNC, 1);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->code, uint32_t{QV_HOST_ERROR_FILE});
        EXPECT_NE(answer->bytes, "");
        expectService(client, 3);
        EXPECT_EQ(statusOf(client).file().problem(), answer->bytes);
        EXPECT_TRUE(host.waitForError("the file does not follow the directory: "));
        host.setBehaviour("");
        // The host tries again by itself.
        EXPECT_TRUE(host.waitForError("the directory is in its file again: "));
        EXPECT_EQ(readFile(host.configuration()), tests::documentOf({{2, "b"}, {4, "b"}}));
        host.signal(SIGTERM);
        EXPECT_EQ(host.wait(), 0);
    }
}

TEST(ServePlugin, ItsAnswerToTheLevelReachesTheClient) {
    HostProcess host;
    host.disturbPlugin("");
    ASSERT_TRUE(host.start());
    const RawClient client(host.socket());
    expectDone(client, QV_COMMAND_SET_DEBUG_LEVEL, kLevelInput);
    std::optional<RawAnswer> answer = client.ask(QV_COMMAND_SET_DEBUG_LEVEL, 3, "\x10\x63");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_ERROR_ARGUMENT});
    EXPECT_EQ(answer->bytes, "");
    host.setBehaviour("request throws text");
    answer = client.ask(QV_COMMAND_SET_DEBUG_LEVEL, 4, kLevelInput);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, uint32_t{QV_HOST_ERROR_PLUGIN});
    EXPECT_THAT(answer->bytes, HasSubstr("fail to get the lock"));
    EXPECT_TRUE(client.works());
}

}  // namespace
}  // namespace qv::host
