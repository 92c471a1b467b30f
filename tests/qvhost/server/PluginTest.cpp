// SPDX-License-Identifier: Apache-2.0

#include "server/Plugin.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "qvhost/FakePluginControl.h"
#include "server/PluginError.h"
#include "support/ErrorText.h"

namespace qv::host {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tests::errorTextOf;

Plugin::Answer list(const Plugin& plugin) {
    return plugin.call(QV_COMMAND_GET_SERVICES, {});
}

// Returns the error of a listing by a plug-in that behaves so.
std::string listingProblem(const std::string& behaviour) {
    const FakePluginControl control(behaviour);
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    return errorTextOf<PluginError>([&] { list(plugin); });
}

// Returns the result of a listing by a plug-in that behaves so.
int listingResult(const std::string& behaviour) {
    const FakePluginControl control(behaviour);
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    return list(plugin).result();
}

TEST(Plugin, LoadingCallsNeitherInitializeNorACommand) {
    const FakePluginControl control;
    const Plugin plugin(QVHOST_FAKE_PLUGIN);
    EXPECT_EQ(plugin.id(), 2);
    EXPECT_EQ(plugin.path(), QVHOST_FAKE_PLUGIN);
    EXPECT_THAT(control.record(), IsEmpty());
}

TEST(Plugin, InputReachesTheHandlerOfTheCommandUnchanged) {
    const FakePluginControl control;
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    plugin.call(QV_COMMAND_REGISTER_SERVICES, "\x0a\x02\x08\x05");
    plugin.call(QV_COMMAND_UNREGISTER_SERVICES, std::string_view("\0", 1));
    plugin.call(QV_COMMAND_SET_DEBUG_LEVEL, "");
    plugin.finalize();
    EXPECT_THAT(control.record(),
                ElementsAre("initialize", "0200 0a020805", "0201 00", "0102 ", "finalize"));
}

TEST(Plugin, AnswerIsGivenBackAtItsEnd) {
    const FakePluginControl control;
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    {
        const Plugin::Answer answer = list(plugin);
        EXPECT_EQ(answer.result(), QV_OK);
        EXPECT_EQ(answer.bytes(), "\x0a\x05\x08\x05\x12\x01\x61\x0a\x05\x08\x06\x12\x01\x62");
        EXPECT_THAT(control.record(), ElementsAre("initialize", "0202 ", "answer"));
    }
    EXPECT_THAT(control.record(), ElementsAre("initialize", "0202 ", "answer", "free"));
}

TEST(Plugin, AnswerMayHaveNoBytes) {
    const FakePluginControl control("answers nothing");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    EXPECT_EQ(list(plugin).bytes(), "");
}

TEST(Plugin, AnswerOfAFailedCommandIsGivenBackToo) {
    const FakePluginControl control("answers and fails");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    EXPECT_EQ(list(plugin).result(), QV_ERROR_SERIALIZE);
    EXPECT_THAT(control.record(), Contains("free"));
}

TEST(Plugin, AnswerWithAnImpossibleLengthIsAnError) {
    EXPECT_THAT(listingProblem("answers length without bytes"), HasSubstr("answer"));
    EXPECT_THAT(listingProblem("answers negative length"), HasSubstr("answer"));
}

TEST(Plugin, AnyResultOfACommandIsReturned) {
    EXPECT_EQ(listingResult("request fails"), QV_ERROR_NO_MEMORY);
    EXPECT_EQ(listingResult("request fails strangely"), 77);
}

TEST(Plugin, WhateverACommandThrowsIsReported) {
    EXPECT_EQ(listingProblem("request throws text"),
              "cannot execute the command: the plug-in failed: fail to get the lock");
    EXPECT_THAT(listingProblem("request throws bad_alloc"),
                HasSubstr("the plug-in failed: out of memory"));
    EXPECT_THAT(listingProblem("request throws exception"),
                HasSubstr("the plug-in failed: something broke"));
    EXPECT_THAT(listingProblem("request throws number"), HasSubstr("the plug-in failed: "));
}

TEST(Plugin, FailedInitialisationIsReportedAndFinalised) {
    for (const char* behaviour : {"initialize throws text", "initialize throws bad_alloc",
                                  "initialize throws number", "initialize fails"}) {
        const FakePluginControl control(behaviour);
        Plugin plugin(QVHOST_FAKE_PLUGIN);
        const std::string problem = errorTextOf<PluginError>([&] { plugin.initialize(); });
        EXPECT_THAT(problem, AllOf(HasSubstr("cannot initialise"), HasSubstr(QVHOST_FAKE_PLUGIN)));
        EXPECT_THAT(control.record(), ElementsAre("initialize", "finalize"));
    }
}

TEST(Plugin, InitialisingAgainAfterAFailureWorks) {
    const FakePluginControl control("initialize throws text");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    EXPECT_THROW(plugin.initialize(), PluginError);
    FakePluginControl::behave("");
    plugin.initialize();
    EXPECT_EQ(list(plugin).result(), QV_OK);
}

TEST(Plugin, DestructionFinalisesOnce) {
    const FakePluginControl control;
    {
        Plugin plugin(QVHOST_FAKE_PLUGIN);
        plugin.initialize();
    }
    EXPECT_THAT(control.record(), ElementsAre("initialize", "finalize"));
}

TEST(Plugin, DestructionSurvivesAFailingFinalisation) {
    const FakePluginControl control("finalize throws text");
    {
        Plugin plugin(QVHOST_FAKE_PLUGIN);
        plugin.initialize();
    }
    EXPECT_THAT(control.record(), ElementsAre("initialize", "finalize"));
}

TEST(Plugin, FailingFinalisationIsReported) {
    const FakePluginControl control("finalize throws text");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    EXPECT_THAT(errorTextOf<PluginError>([&] { plugin.finalize(); }), HasSubstr("cannot finalise"));
}

TEST(Plugin, CommandWithoutInitialisationIsRefused) {
    const FakePluginControl control;
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    EXPECT_THAT(errorTextOf<PluginError>([&] { list(plugin); }), HasSubstr("not initialised"));
    EXPECT_THAT(control.record(), IsEmpty());
}

TEST(Plugin, CommandThatTheTableLacksIsNamed) {
    EXPECT_THAT(listingProblem("has no get row"), HasSubstr("no command 0x0202"));
}

TEST(Plugin, PluginWithoutATableIsRefused) {
    const FakePluginControl control("has no table");
    EXPECT_THAT(errorTextOf<PluginError>([] { const Plugin plugin(QVHOST_FAKE_PLUGIN); }),
                HasSubstr("command table"));
}

TEST(Plugin, AnotherPluginIsNotSentTheNamingServicesCommands) {
    const FakePluginControl control("has another id");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    EXPECT_THAT(errorTextOf<PluginError>([&] { list(plugin); }), HasSubstr("plug-in 7"));
    EXPECT_THAT(control.record(), Not(Contains(HasSubstr("0202"))));
}

TEST(Plugin, LibraryThatLacksAFunctionIsRefusedByItsName) {
    EXPECT_THAT(errorTextOf<PluginError>([] { const Plugin plugin(QVHOST_INCOMPLETE_PLUGIN); }),
                AllOf(HasSubstr(QVHOST_INCOMPLETE_PLUGIN), HasSubstr("QvPlugin")));
}

TEST(Plugin, MissingFileIsNamedOnce) {
    EXPECT_EQ(errorTextOf<PluginError>([] {
                  const Plugin plugin("/nowhere/libnone.so");
              }).find("/nowhere/libnone.so", sizeof "cannot load /nowhere/libnone.so"),
              std::string::npos);
}

}  // namespace
}  // namespace qv::host
