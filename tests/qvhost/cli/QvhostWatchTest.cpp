// SPDX-License-Identifier: Apache-2.0

// Tests `qvhost watch`.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "qvhost/PseudoTerminal.h"
#include "qvhost/cli/QvhostClient.h"

namespace qv::host {
namespace {

using nlohmann::json;
using testing::EndsWith;
using testing::MatchesRegex;

class QvhostWatch : public QvhostClient {
  protected:
    void watch(Arguments arguments = {}) {
        arguments.insert(arguments.begin(), "watch");
        watching_.start(withSocket(arguments));
    }

    // Returns the next line without its time.
    std::string line() const {
        const std::string line = watching_.readUntil("\n");
        EXPECT_THAT(line, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[.]"
                                       "[0-9]{3}Z .*\n"));
        return line.substr(line.find(' ') + 1);
    }

    ProgramRun watching_;
};

TEST_F(QvhostWatch, PrintsTheServicesAndThenEachChange) {
    done({"register", "9", "i", "-7", "a\nb"});
    watch();
    EXPECT_EQ(line(), "+ -7 a\\nb\n");
    EXPECT_EQ(line(), "+ 9 i\n");
    done({"register", "7", "/run/a.sock", "9", "i"});
    EXPECT_EQ(line(), "+ 7 /run/a.sock\n");
    done({"register", "7", "/run/b.sock"});
    EXPECT_EQ(line(), "~ 7 /run/b.sock\n");
    done({"unregister", "9", "-7"});
    EXPECT_EQ(line(), "- -7\n");
    EXPECT_EQ(line(), "- 9\n");
    watching_.signal(SIGINT);
    const ProgramOutcome outcome = watching_.finish();
    EXPECT_EQ(outcome.status, 128 + SIGINT);
    EXPECT_EQ(outcome.err, "");
}

TEST_F(QvhostWatch, PrintsOnlyTheServicesThatItIsToldOf) {
    done({"register", "6", "a", "7", "b"});
    watch({"7", "8"});
    EXPECT_EQ(line(), "+ 7 b\n");
    done({"register", "6", "c"});
    done({"register", "8", "d"});
    EXPECT_EQ(line(), "+ 8 d\n");
}

TEST_F(QvhostWatch, PrintsJson) {
    done({"register", "7", "a\n"});
    watch({"--json"});
    json first = json::parse(watching_.readUntil("\n"));
    EXPECT_GT(first.at("time").get<double>(), 1e9);
    first.erase("time");
    EXPECT_EQ(first, json({{"change", "registered"}, {"id", 7}, {"address", "a\n"}}));
    done({"register", "7", "b"});
    EXPECT_EQ(json::parse(watching_.readUntil("\n")).at("change"), "changed");
    done({"unregister", "7"});
    const json last = json::parse(watching_.readUntil("\n"));
    EXPECT_EQ(last.at("change"), "removed");
    EXPECT_EQ(last.count("address"), 0U);
}

TEST_F(QvhostWatch, PrintsWhatDiffersWhenTheHostIsBack) {
    const PseudoTerminal errors;
    watching_.setErrors(errors.path());
    done({"register", "1", "a", "2", "b", "3", "c"});
    watch();
    EXPECT_EQ(line(), "+ 1 a\n");
    EXPECT_EQ(line(), "+ 2 b\n");
    EXPECT_EQ(line(), "+ 3 c\n");
    host_.signal(SIGTERM);
    EXPECT_EQ(host_.wait(), 0);
    EXPECT_THAT(errors.readUntil("\n"), EndsWith("; trying again\r\n"));
    // The host has another directory now, and nothing of its former run.
    std::filesystem::remove(host_.files().path("config/namingService.conf.plist.record"));
    host_.files().write("config/namingService.conf.plist",
                        "<plist version='1.0'><dict><key>Address</key><dict><key>services</key>"
                        "<array><dict><key>id</key><integer>2</integer><key>address</key>"
                        "<string>B</string></dict><dict><key>id</key><integer>3</integer>"
                        "<key>address</key><string>c</string></dict><dict><key>id</key>"
                        "<integer>4</integer><key>address</key><string>d</string></dict></array>"
                        "</dict></dict></plist>");
    ASSERT_TRUE(host_.start()) << host_.errors();
    EXPECT_EQ(errors.readUntil("\n"), "qvhost: connected again\r\n");
    EXPECT_EQ(line(), "- 1\n");
    EXPECT_EQ(line(), "~ 2 B\n");
    EXPECT_EQ(line(), "+ 4 d\n");
    done({"unregister", "3"});
    EXPECT_EQ(line(), "- 3\n");
}

TEST_F(QvhostWatch, EndsWhenNobodyReads) {
    done({"register", "1", "a"});
    watch();
    line();
    watching_.closeOutput();
    const ProgramOutcome outcome = watching_.finish();
    EXPECT_EQ(outcome.status, 128 + SIGPIPE);
    EXPECT_EQ(outcome.err, "");
}

}  // namespace
}  // namespace qv::host
