#include "Plugin.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "FakePluginControl.h"
#include "PluginError.h"

namespace qv::host {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string problemOf(const std::function<void()>& attempt) {
    try {
        attempt();
    } catch (const PluginError& error) {
        return error.what();
    }
    ADD_FAILURE() << "succeeded";
    return "";
}

// What listing says, with a plug-in that behaves so.
std::string listingProblem(const std::string& behaviour) {
    const FakePluginControl control(behaviour);
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    return problemOf([&] { plugin.services(); });
}

TEST(Plugin, LoadingAsksForNothingToBeOpened) {
    const FakePluginControl control;
    const Plugin plugin(QVHOST_FAKE_PLUGIN);
    EXPECT_EQ(plugin.id(), 2);
    EXPECT_EQ(plugin.path(), QVHOST_FAKE_PLUGIN);
    EXPECT_THAT(control.record(), IsEmpty());
}

TEST(Plugin, RequestsCrossTheInterfaceAsSerialisedMessages) {
    const FakePluginControl control;
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    plugin.registerServices({{5, "a"}, {-1, ""}});
    plugin.unregisterServices({5, 300});
    plugin.setDebugLevel(7);
    plugin.finalize();
    EXPECT_THAT(control.record(),
                ElementsAre("initialize",
                            "0200 0a050805120161"
                            "0a0d08ffffffffffffffffff011200",
                            "0201 0a0208050a0308ac02", "0102 08021007", "finalize"));
}

TEST(Plugin, ServicesAreReadFromTheAnswerWhichIsGivenBack) {
    const FakePluginControl control;
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    const std::vector<Service> services = plugin.services();
    ASSERT_EQ(services.size(), 2U);
    EXPECT_EQ(services[0].id, 5);
    EXPECT_EQ(services[0].address, "a");
    EXPECT_EQ(services[1].id, 6);
    EXPECT_EQ(services[1].address, "b");
    EXPECT_THAT(control.record(), ElementsAre("initialize", "0202 ", "answer", "free"));
}

TEST(Plugin, ServicesOfAnAnswerBeyond64MiBAreRead) {
    const FakePluginControl control("answers beyond 64 MiB");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    EXPECT_EQ(plugin.services().size(), 2U);
}

TEST(Plugin, NoAnswerIsAnEmptyDirectory) {
    const FakePluginControl control("answers nothing");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    EXPECT_THAT(plugin.services(), IsEmpty());
}

TEST(Plugin, AnswerThatIsNoMessageIsAnErrorAndGivenBack) {
    const FakePluginControl control("answers garbage");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    EXPECT_THAT(problemOf([&] { plugin.services(); }), HasSubstr("answer"));
    EXPECT_THAT(control.record(), Contains("free"));
}

TEST(Plugin, AnswerOfAFailedRequestIsGivenBackToo) {
    const FakePluginControl control("answers and fails");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    EXPECT_THAT(problemOf([&] { plugin.services(); }), HasSubstr("20001"));
    EXPECT_THAT(control.record(), Contains("free"));
}

TEST(Plugin, AnswerWithAnImpossibleLengthIsAnError) {
    EXPECT_THAT(listingProblem("answers length without bytes"), HasSubstr("answer"));
    EXPECT_THAT(listingProblem("answers negative length"), HasSubstr("answer"));
}

TEST(Plugin, ErrorResultIsReportedWithItsMeaning) {
    EXPECT_EQ(listingProblem("request fails"),
              "cannot list the services: the plug-in answered 20006 (no memory for the answer)");
    EXPECT_THAT(listingProblem("request fails strangely"), HasSubstr("answered 77"));
}

TEST(Plugin, WhateverARequestThrowsIsReported) {
    EXPECT_EQ(listingProblem("request throws text"),
              "cannot list the services: the plug-in failed: fail to get the lock");
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
        EXPECT_THAT(problemOf([&] { plugin.initialize(); }),
                    AllOf(HasSubstr("cannot initialise"), HasSubstr(QVHOST_FAKE_PLUGIN)));
        EXPECT_THAT(control.record(), ElementsAre("initialize", "finalize"));
    }
}

TEST(Plugin, InitialisingAgainAfterAFailureWorks) {
    const FakePluginControl control("initialize throws text");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    EXPECT_THROW(plugin.initialize(), PluginError);
    FakePluginControl::behave("");
    plugin.initialize();
    EXPECT_EQ(plugin.services().size(), 2U);
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
    EXPECT_THAT(problemOf([&] { plugin.finalize(); }), HasSubstr("cannot finalise"));
}

TEST(Plugin, RequestWithoutInitialisationIsRefused) {
    const FakePluginControl control;
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    EXPECT_THAT(problemOf([&] { plugin.services(); }), HasSubstr("not initialised"));
    EXPECT_THAT(control.record(), IsEmpty());
}

TEST(Plugin, CommandThatTheTableLacksIsNamed) {
    EXPECT_THAT(listingProblem("has no get row"), HasSubstr("no command 0x0202"));
}

TEST(Plugin, PluginWithoutATableIsRefused) {
    const FakePluginControl control("has no table");
    EXPECT_THAT(problemOf([] { const Plugin plugin(QVHOST_FAKE_PLUGIN); }),
                HasSubstr("command table"));
}

TEST(Plugin, AnotherPluginIsNotSentTheNamingServicesRequests) {
    const FakePluginControl control("has another id");
    Plugin plugin(QVHOST_FAKE_PLUGIN);
    plugin.initialize();
    EXPECT_THAT(problemOf([&] { plugin.registerServices({{1, "a"}}); }), HasSubstr("plug-in 7"));
    EXPECT_THAT(control.record(), Not(Contains(HasSubstr("0200"))));
}

TEST(Plugin, LibraryThatLacksAFunctionIsRefusedByItsName) {
    EXPECT_THAT(problemOf([] { const Plugin plugin(QVHOST_INCOMPLETE_PLUGIN); }),
                AllOf(HasSubstr(QVHOST_INCOMPLETE_PLUGIN), HasSubstr("QvPlugin")));
}

TEST(Plugin, MissingFileIsNamedOnce) {
    EXPECT_EQ(problemOf([] {
                  const Plugin plugin("/nowhere/libnone.so");
              }).find("/nowhere/libnone.so", sizeof "cannot load /nowhere/libnone.so"),
              std::string::npos);
}

}  // namespace
}  // namespace qv::host
