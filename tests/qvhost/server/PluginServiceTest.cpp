#include "server/PluginService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qvhost/FakePluginControl.h"
#include "qvhost/RawClient.h"

namespace qv::host {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Serves the fake plug-in.
class Served {
  public:
    explicit Served(const std::string& behaviour = "")
        : control_(behaviour),
          plugin_(QVHOST_FAKE_PLUGIN),
          service_(plugin_, [this] { plugin_.initialize(); }) {}

    PluginService& service() { return service_; }
    const FakePluginControl& control() const { return control_; }

    // Returns the answer as it goes over the wire.
    std::string answer(uint32_t command, const std::string& bytes = "") {
        AnswerQueue answers;
        service_.answer({{command, static_cast<uint32_t>(bytes.size()), 9}, bytes}, answers);
        std::string sent;
        for (const std::string_view piece : answers.pieces()) {
            sent += piece;
        }
        return sent;
    }

  private:
    FakePluginControl control_;
    Plugin plugin_;
    PluginService service_;
};

std::string problem(uint32_t code, const std::string& text) {
    return frame(code, 9, text);
}

TEST(PluginService, RequestReachesThePluginAndItsAnswerComesBack) {
    Served served;
    served.service().initialize();
    EXPECT_EQ(served.answer(QV_COMMAND_REGISTER_SERVICES, "\x0a\x01"), frame(QV_OK, 9));
    EXPECT_EQ(served.answer(QV_COMMAND_GET_SERVICES),
              frame(QV_OK, 9, "\x0a\x05\x08\x05\x12\x01\x61\x0a\x05\x08\x06\x12\x01\x62"));
    EXPECT_THAT(served.control().record(),
                ElementsAre("initialize", "0200 0a01", "0202 ", "answer", "free"));
}

TEST(PluginService, PingIsAnsweredWithoutThePlugin) {
    Served served;
    EXPECT_EQ(served.answer(QV_HOST_COMMAND_PING, "whatever"), frame(QV_OK, 9));
    EXPECT_THAT(served.control().record(), IsEmpty());
}

TEST(PluginService, UnknownCommandHasACodeOfItsOwn) {
    Served served;
    served.service().initialize();
    for (const uint32_t command : {1U, 0x0203U, 0xffffffffU, 0x10200U}) {
        EXPECT_THAT(served.answer(command),
                    AllOf(testing::StartsWith(frame(QV_HOST_ERROR_COMMAND, 9).substr(0, 4)),
                          HasSubstr("no command")));
    }
}

TEST(PluginService, ResultOfThePluginIsPassedOnWithItsBytes) {
    Served failing("request fails");
    failing.service().initialize();
    EXPECT_EQ(failing.answer(QV_COMMAND_GET_SERVICES), frame(QV_ERROR_NO_MEMORY, 9));
    Served answering("answers and fails");
    answering.service().initialize();
    EXPECT_EQ(answering.answer(QV_COMMAND_GET_SERVICES), frame(QV_ERROR_SERIALIZE, 9, "\xff"));
}

TEST(PluginService, ExceptionOfThePluginBecomesAnAnswer) {
    const std::string attempt = "cannot execute the command: the plug-in failed: ";
    for (const auto& [thrown, text] :
         {std::pair("text", "fail to get the lock"), std::pair("bad_alloc", "out of memory"),
          std::pair("exception", "something broke"),
          std::pair("number", "it threw something that is no C++ exception class")}) {
        Served served(std::string("request throws ") + thrown);
        served.service().initialize();
        EXPECT_EQ(served.answer(QV_COMMAND_GET_SERVICES),
                  problem(QV_HOST_ERROR_PLUGIN, attempt + text));
    }
}

TEST(PluginService, ImpossibleAnswerIsAnErrorAndGivenBack) {
    Served served("answers negative length");
    served.service().initialize();
    EXPECT_THAT(served.answer(QV_COMMAND_GET_SERVICES), HasSubstr("impossible length -1"));
    EXPECT_EQ(served.control().record().back(), "free");
}

TEST(PluginService, AnotherPluginIsSentNothing) {
    Served served("has another id");
    served.service().initialize();
    EXPECT_THAT(served.answer(QV_COMMAND_GET_SERVICES), HasSubstr("plug-in 7"));
}

TEST(PluginService, ReloadFinalisesAndInitialises) {
    Served served;
    EXPECT_FALSE(served.service().works());
    served.service().initialize();
    served.service().closeForReload([] {});
    EXPECT_THAT(served.service().reload(), IsEmpty());
    EXPECT_TRUE(served.service().works());
    served.service().finalize();
    EXPECT_THAT(served.control().record(),
                ElementsAre("initialize", "finalize", "initialize", "finalize"));
}

TEST(PluginService, ReloadThatFailsCanBeTriedAgain) {
    Served served;
    served.service().initialize();
    FakePluginControl::behave("initialize throws text");
    served.service().closeForReload([] {});
    EXPECT_THAT(served.service().reload(),
                ElementsAre(HasSubstr("the plug-in failed: fail to get the lock")));
    EXPECT_FALSE(served.service().works());
    EXPECT_EQ(served.answer(QV_COMMAND_GET_SERVICES),
              problem(QV_HOST_ERROR_PLUGIN,
                      "cannot execute the command: the plug-in is not initialised"));
    FakePluginControl::behave("");
    served.service().closeForReload([] {});
    EXPECT_THAT(served.service().reload(), IsEmpty());
    EXPECT_TRUE(served.service().works());
    EXPECT_THAT(served.answer(QV_COMMAND_GET_SERVICES), HasSubstr("\x12\x01\x61"));
}

TEST(PluginService, FailingFinalisationDoesNotEndTheReload) {
    Served served("finalize throws text");
    served.service().initialize();
    served.service().closeForReload([] {});
    EXPECT_THAT(served.service().reload(), ElementsAre(HasSubstr("cannot finalise")));
    EXPECT_TRUE(served.service().works());
    FakePluginControl::behave("");
}

// The fake plug-in ends the process if a request meets a reload.
TEST(PluginService, RequestsAndReloadsNeverMeet) {
    Served served;
    served.service().initialize();
    constexpr std::size_t kClients = 4;
    std::vector<std::thread> clients;
    clients.reserve(kClients);
    for (std::size_t i = 0; i < kClients; ++i) {
        clients.emplace_back([&] {
            for (int request = 0; request < 200; ++request) {
                EXPECT_EQ(served.answer(QV_COMMAND_REGISTER_SERVICES, "x"), frame(QV_OK, 9));
            }
        });
    }
    for (int reload = 0; reload < 20; ++reload) {
        std::promise<void> emptied;
        served.service().closeForReload([&] { emptied.set_value(); });
        emptied.get_future().wait();
        EXPECT_THAT(served.service().reload(), IsEmpty());
    }
    for (std::thread& client : clients) {
        client.join();
    }
}

}  // namespace
}  // namespace qv::host
