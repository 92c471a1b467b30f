// SPDX-License-Identifier: Apache-2.0

#include "cli/Output.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "qvhost/FakePluginControl.h"

namespace qv::host {
namespace {

using nlohmann::json;

TEST(FormatServices, TableAlignsItsColumns) {
    EXPECT_EQ(
        formatServices({{-2147483648, "low"}, {7, "/run/a b.sock"}, {300, ""}}, Format::Table),
        "         ID  ADDRESS\n"
        "-2147483648  low\n"
        "          7  /run/a b.sock\n"
        "        300  \n");
}

TEST(FormatServices, HeadingIsAsWideAsItsName) {
    EXPECT_EQ(formatServices({{1, "a"}}, Format::Table), "ID  ADDRESS\n 1  a\n");
}

TEST(FormatServices, EmptyDirectoryIsSaidInWords) {
    EXPECT_EQ(formatServices({}, Format::Table), "no services\n");
}

TEST(FormatServices, TableEscapesControlsAndBytesThatAreNotUtf8) {
    EXPECT_EQ(formatServices({{1, "\x1b[31m\n\x7f\xff\xc3\xa9"}}, Format::Table),
              "ID  ADDRESS\n 1  \\x1b[31m\\n\\x7f\\xff\xc3\xa9\n");
}

TEST(FormatServices, NulByteInAnAddressIsEscaped) {
    EXPECT_EQ(formatServices({{1, std::string("a\0b", 3)}}, Format::Table),
              "ID  ADDRESS\n 1  a\\x00b\n");
}

TEST(FormatServices, JsonIsOneArrayOnOneLine) {
    EXPECT_EQ(formatServices({{1, "a"}, {2, "\"b\\"}}, Format::Json),
              "[{\"id\":1,\"address\":\"a\"},{\"id\":2,\"address\":\"\\\"b\\\\\"}]\n");
    EXPECT_EQ(formatServices({}, Format::Json), "[]\n");
}

TEST(FormatServices, JsonReplacesBytesThatAreNotUtf8) {
    const std::string text = formatServices({{1, "a\xff\xc3\xa9"}}, Format::Json);
    EXPECT_EQ(json::parse(text).at(0).at("address"), "a\xef\xbf\xbd\xc3\xa9");
}

TEST(FormatServices, JsonDrivesNoTerminal) {
    for (const char c : formatServices({{1, "\x1b\x7f\xc2\x9b\xe2\x80\xa8"}}, Format::Json)) {
        EXPECT_TRUE(c == '\n' || (c >= ' ' && c < '\x7f'));
    }
}

TEST(FormatServices, CsvHasAHeaderAndEndsItsLinesWithLineFeeds) {
    EXPECT_EQ(formatServices({}, Format::Csv), "id,address\n");
    EXPECT_EQ(formatServices({{-1, "a b"}, {2, ""}}, Format::Csv), "id,address\n-1,a b\n2,\n");
}

TEST(FormatServices, CsvQuotesWhatNeedsIt) {
    EXPECT_EQ(formatServices({{1, "a,b"}, {2, "\"c\""}, {3, "d\ne"}, {4, "f\r"}}, Format::Csv),
              "id,address\n1,\"a,b\"\n2,\"\"\"c\"\"\"\n3,\"d\ne\"\n4,\"f\r\"\n");
}

TEST(FormatServices, CsvReplacesBytesThatAreNotUtf8) {
    EXPECT_EQ(formatServices({{1, "a\xff\xc3\xa9"}}, Format::Csv),
              "id,address\n1,a\xef\xbf\xbd\xc3\xa9\n");
}

TEST(FormatInfo, TableShowsPathIdAndCommandsInHexadecimal) {
    const FakePluginControl control;
    const Plugin plugin(QVHOST_FAKE_PLUGIN);
    EXPECT_EQ(formatInfo(plugin, Format::Table), "plug-in  " QVHOST_FAKE_PLUGIN
                                                 "\n"
                                                 "id       2\n"
                                                 "\n"
                                                 "CODE    COMMAND\n"
                                                 "0x0200  fake register\n"
                                                 "0x0201  names of thirty-six bytes have noend\n"
                                                 "0x0102  fake level\n"
                                                 "0x0202  fake get\n");
}

TEST(FormatInfo, JsonHoldsTheSame) {
    const FakePluginControl control;
    const Plugin plugin(QVHOST_FAKE_PLUGIN);
    const json info = json::parse(formatInfo(plugin, Format::Json));
    EXPECT_EQ(info.at("path"), QVHOST_FAKE_PLUGIN);
    EXPECT_EQ(info.at("id"), 2);
    EXPECT_EQ(info.at("commands").size(), 4U);
    EXPECT_EQ(info.at("commands").at(3), json({{"code", "0x0202"}, {"name", "fake get"}}));
}

TEST(FormatMadeFile, NamesThePathSafely) {
    EXPECT_EQ(formatMadeFile("a\x1b/b", Format::Table), "made a\\x1b/b\n");
    EXPECT_EQ(formatMadeFile("a/\"b", Format::Json), "{\"path\":\"a/\\\"b\"}\n");
}

}  // namespace
}  // namespace qv::host
