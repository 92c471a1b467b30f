// SPDX-License-Identifier: Apache-2.0

#include "cli/StatusOutput.h"

#include <QvFrame.h>
#include <QvPlugin.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>

namespace qv::host {
namespace {

using client::HostStatus;
using nlohmann::json;
using std::chrono::microseconds;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::Not;

HostStatus::Time at(int64_t second) {
    return HostStatus::Time(seconds(second));
}

HostStatus healthy() {
    HostStatus status;
    status.version = "1.2.3";
    status.startTime = at(1795252752);
    status.start = "the record counts: 501 services, the file held the same";
    status.services = 501;
    status.addressBytes = 12345;
    status.revision = 77;
    status.isKept = true;
    status.file.path = "/state/namingService.conf.plist";
    status.file.revision = 77;
    status.commits = {40, 77, 12, microseconds(2150), {}};
    status.saves = {30, microseconds(12000), {}};
    status.clients = 3;
    status.clientLimit = 1024;
    status.subscribers = 2;
    status.memory = 512;
    status.memoryLimit = uint64_t{256} << 20;
    status.level = 6;
    status.requests = {{QV_HOST_COMMAND_PING, 4}, {QV_COMMAND_GET_SERVICES, 7}};
    return status;
}

HostStatus troubled() {
    HostStatus status = healthy();
    status.isKept = false;
    status.notKeptSince = at(1795252760);
    status.notKeptReason = "the disk is full";
    status.file.revision = 75;
    status.file.behind = 2;
    status.file.behindSince = at(1795252761);
    status.file.problem = "it may not be written";
    status.commits.underWay = microseconds(1500000);
    status.saves.underWay = microseconds(20);
    status.refusals = {{QV_HOST_ERROR_FORBIDDEN, 2}, {QV_HOST_ERROR_LENGTH, 1}};
    return status;
}

TEST(FormatStatus, TableSaysEverythingInOneLineEach) {
    EXPECT_EQ(formatStatus(healthy(), Format::Table),
              "host      version 1.2.3, serving since 2026-11-21T09:19:12Z\n"
              "start     the record counts: 501 services, the file held the same\n"
              "services  501 with 12.1 KiB of addresses, revision 77\n"
              "kept      yes\n"
              "file      /state/namingService.conf.plist holds the directory\n"
              "commits   40 with 77 changes, at most 12 in one, the longest 2.150 ms\n"
              "saves     30, the longest 12.000 ms\n"
              "clients   3 of 1024, 2 subscribed\n"
              "memory    512 bytes of 256.0 MiB\n"
              "level     6\n"
              "requests  ping 4, list 7\n"
              "refused   none\n");
}

TEST(FormatStatus, TableSaysWhatIsWrong) {
    const std::string table = formatStatus(troubled(), Format::Table);
    EXPECT_THAT(table, HasSubstr("\nkept      no, since 2026-11-21T09:19:20Z: the disk is full\n"));
    EXPECT_THAT(table,
                HasSubstr("\nfile      /state/namingService.conf.plist is behind by 2 changes, "
                          "since 2026-11-21T09:19:21Z: it may not be written\n"));
    EXPECT_THAT(table, HasSubstr(" the longest 2.150 ms; one under way for 1500.000 ms\n"));
    EXPECT_THAT(table, HasSubstr(" the longest 12.000 ms; one under way for 0.020 ms\n"));
    EXPECT_THAT(table, HasSubstr("\nrefused   forbidden 2, too long 1\n"));
}

TEST(FormatStatus, TableSaysThatTheFileHoldsAnotherDirectory) {
    HostStatus status = healthy();
    status.file.problem = "it is damaged";
    EXPECT_THAT(formatStatus(status, Format::Table),
                HasSubstr(".plist does not hold the directory: it is damaged\n"));
    status.file.problem.clear();
    status.file.behind = 1;
    EXPECT_THAT(formatStatus(status, Format::Table), HasSubstr(".plist is behind by 1 change\n"));
}

TEST(FormatStatus, TableLeavesOutALevelThatIsUnknown) {
    HostStatus status = healthy();
    status.level.reset();
    EXPECT_THAT(formatStatus(status, Format::Table), Not(HasSubstr("level")));
}

TEST(FormatStatus, TableDrivesNoTerminal) {
    HostStatus status = troubled();
    for (std::string* const text : {&status.version, &status.start, &status.notKeptReason,
                                    &status.file.path, &status.file.problem}) {
        *text = "\x1b[31m\n\xff";
    }
    const std::string table = formatStatus(status, Format::Table);
    EXPECT_THAT(table, Not(HasSubstr("\x1b")));
    EXPECT_THAT(table, HasSubstr("kept      no, since 2026-11-21T09:19:20Z: \\x1b[31m\\n\\xff\n"));
}

TEST(FormatStatus, TableEscapesNothingTwice) {
    HostStatus status = troubled();
    status.notKeptReason = "a\\x1b";
    EXPECT_THAT(formatStatus(status, Format::Table), HasSubstr(": a\\x1b\n"));
}

TEST(FormatStatus, JsonHoldsEverything) {
    const std::string text = formatStatus(troubled(), Format::Json);
    EXPECT_EQ(text.find('\n'), text.size() - 1);
    EXPECT_EQ(json::parse(text),
              json({{"version", "1.2.3"},
                    {"startTime", 1795252752},
                    {"start", "the record counts: 501 services, the file held the same"},
                    {"services", 501},
                    {"addressBytes", 12345},
                    {"revision", 77},
                    {"kept", false},
                    {"notKeptSince", 1795252760},
                    {"notKeptReason", "the disk is full"},
                    {"file",
                     {{"path", "/state/namingService.conf.plist"},
                      {"revision", 75},
                      {"behind", 2},
                      {"behindSince", 1795252761},
                      {"problem", "it may not be written"}}},
                    {"commits",
                     {{"count", 40},
                      {"changes", 77},
                      {"mostChanges", 12},
                      {"longestMicroseconds", 2150},
                      {"underWayMicroseconds", 1500000}}},
                    {"saves",
                     {{"count", 30}, {"longestMicroseconds", 12000}, {"underWayMicroseconds", 20}}},
                    {"clients", 3},
                    {"clientLimit", 1024},
                    {"subscribers", 2},
                    {"memory", 512},
                    {"memoryLimit", 268435456},
                    {"level", 6},
                    {"requests", {{"ping", 4}, {"list", 7}}},
                    {"refusals", {{"forbidden", 2}, {"tooLong", 1}}}}));
}

TEST(FormatStatus, JsonHasNullForWhatDoesNotApply) {
    HostStatus status = healthy();
    status.level.reset();
    const json parsed = json::parse(formatStatus(status, Format::Json));
    for (const char* key :
         {"/notKeptSince", "/notKeptReason", "/file/behindSince", "/file/problem",
          "/commits/underWayMicroseconds", "/saves/underWayMicroseconds", "/level"}) {
        EXPECT_TRUE(parsed.at(json::json_pointer(key)).is_null()) << key;
    }
    EXPECT_EQ(parsed.at("refusals"), json::object());
}

TEST(FormatStatus, JsonIsSafeOnATerminalWhateverAPathHolds) {
    HostStatus status = healthy();
    status.file.path = "a\x1b\xff";
    const std::string text = formatStatus(status, Format::Json);
    EXPECT_THAT(text, HasSubstr("\"a\\u001b\\ufffd\""));
}

TEST(FormatStatus, CodesWithoutANameStandForThemselves) {
    HostStatus status = healthy();
    status.requests = {{0x0300, 2}};
    status.refusals = {{4294967295, 3}};
    EXPECT_THAT(formatStatus(status, Format::Table),
                HasSubstr("requests  768 2\nrefused   4294967295 3\n"));
    EXPECT_EQ(json::parse(formatStatus(status, Format::Json)).at("requests"), json({{"768", 2}}));
}

TEST(FormatStatus, TimesThatNoCalendarHasAreNumbers) {
    HostStatus status = troubled();
    status.startTime = at(std::numeric_limits<int64_t>::max());
    status.notKeptSince = at(std::numeric_limits<int64_t>::min());
    const std::string table = formatStatus(status, Format::Table);
    EXPECT_THAT(table, HasSubstr("serving since second 9223372036854775807\n"));
    EXPECT_THAT(table, HasSubstr("kept      no, since second -9223372036854775808: "));
}

}  // namespace
}  // namespace qv::host
