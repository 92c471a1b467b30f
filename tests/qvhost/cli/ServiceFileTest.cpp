// SPDX-License-Identifier: Apache-2.0

#include "cli/ServiceFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qvhost/TestFiles.h"

namespace qv::host {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;
using Pairs = std::vector<std::pair<int32_t, std::string>>;

ReadServices readText(const std::string& text, std::optional<Format> format = std::nullopt) {
    return readServices(text, "file", format);
}

Pairs servicesOf(const std::string& text, std::optional<Format> format = std::nullopt) {
    const ReadServices read = readText(text, format);
    EXPECT_THAT(read.problems, IsEmpty()) << text;
    Pairs pairs;
    for (const Service& service : read.services) {
        pairs.emplace_back(service.id, service.address);
    }
    return pairs;
}

std::vector<std::string> problemsOf(const std::string& text) {
    return readText(text).problems;
}

TEST(ReadServices, BothFormatsAreKnownByTheirBeginning) {
    const Pairs services = {{-1, "a"}, {2147483647, "b"}};
    EXPECT_EQ(servicesOf("id,address\n-1,a\n2147483647,b\n"), services);
    EXPECT_EQ(servicesOf("\r\n [{\"id\":-1,\"address\":\"a\"},"
                         "{\"address\":\"b\",\"id\":2147483647}]\n"),
              services);
    EXPECT_THAT(servicesOf("id,address"), IsEmpty());
    EXPECT_THAT(servicesOf("[]"), IsEmpty());
}

TEST(ReadServices, FormatMayBeGiven) {
    EXPECT_THAT(readText("[]", Format::Csv).problems,
                ElementsAre("file:1: the first line must be id,address"));
    EXPECT_THAT(readText("id,address\n", Format::Json).problems,
                ElementsAre(HasSubstr("file:1: syntax error")));
    EXPECT_EQ(servicesOf("[{\"id\":1,\"address\":\"a\"}]", Format::Json), (Pairs{{1, "a"}}));
}

TEST(ReadServices, AddressThatTheDirectoryCannotHoldIsRefused) {
    EXPECT_THAT(problemsOf("[{\"id\":1,\"address\":\"a\\u0000b\"}]"),
                ElementsAre("file:1: the address holds a zero byte"));
    EXPECT_THAT(problemsOf(std::string("id,address\n1,a\0b\n", 17)),
                ElementsAre("file:2: the address holds a zero byte"));
    EXPECT_THAT(problemsOf("id,address\n1,\n2,\xff\n3,\xef\xbb\xbf\n4," + std::string(4097, 'x')),
                ElementsAre("file:2: the address is empty", "file:3: the address is not UTF-8",
                            "file:4: the address begins with a byte order mark (U+FEFF)",
                            "file:5: the address is longer than 4 KiB"));
    EXPECT_THAT(problemsOf("[{\"id\":1,\"address\":\"\"},{\"id\":2,\"address\":\"\\ufeff\"}]"),
                ElementsAre("file:1: the address is empty",
                            "file:1: the address begins with a byte order mark (U+FEFF)"));
}

TEST(ReadServices, ByteOrderMarkIsNoText) {
    EXPECT_EQ(servicesOf("\xef\xbb\xbfid,address\r\n1,a\r\n"), (Pairs{{1, "a"}}));
    EXPECT_EQ(servicesOf("\xef\xbb\xbf[{\"id\":1,\"address\":\"a\"}]"), (Pairs{{1, "a"}}));
    EXPECT_THAT(readText("\xef\xbb\xbf\xef\xbb\xbf[]", Format::Json).problems,
                ElementsAre(HasSubstr("file:1: syntax error")));
    EXPECT_THAT(readText("\xef\xbb\xbf\xef\xbb\xbfid,address\n", Format::Csv).problems,
                ElementsAre("file:1: the first line must be id,address"));
}

TEST(ReadServices, WrittenServicesAreReadBack) {
    const std::vector<Service> services = {
        {-2147483648, " "}, {-1, "a,b"},          {0, "\"quoted\""},
        {1, "x\r\ny\nz"},   {2, " a "},           {3, "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"},
        {4, "[{"},          {5, "\x1b[31m\t\x7f"}};
    for (const Format format : {Format::Csv, Format::Json}) {
        const Pairs read = servicesOf(formatServices(services, format));
        ASSERT_EQ(read.size(), services.size());
        for (std::size_t i = 0; i < services.size(); ++i) {
            EXPECT_EQ(read[i], std::make_pair(services[i].id, services[i].address));
        }
    }
}

TEST(ReadServices, IdentifiersInCsvMayBeHexadecimal) {
    EXPECT_EQ(servicesOf("id,address\n0x10,a\n"), (Pairs{{16, "a"}}));
}

TEST(ReadServices, WrongLinesOfCsvAreNamed) {
    EXPECT_THAT(problemsOf("id,address\n1,a\nx,b\n2,c,d\n3\n2147483648,e\n4,\xff\n"),
                ElementsAre(HasSubstr("file:3: identifier must be a number"),
                            "file:4: a line has an identifier and an address, but this one has 3 "
                            "fields",
                            "file:5: a line has an identifier and an address, but this one has 1 "
                            "field",
                            HasSubstr("file:6: identifier '2147483648' is out of range"),
                            "file:7: the address is not UTF-8"));
}

TEST(ReadServices, LinesInsideQuotationMarksCount) {
    EXPECT_THAT(problemsOf("id,address\n1,\"a\nb\"\nx,c\n"), ElementsAre(HasSubstr("file:4: ")));
}

TEST(ReadServices, CsvNeedsItsHeader) {
    for (const char* text : {"", "\n", "1,a\n", "ID,ADDRESS\n", "address,id\n", "id\n"}) {
        EXPECT_THAT(problemsOf(text), ElementsAre(HasSubstr("the first line must be id,address")))
            << text;
    }
}

TEST(ReadServices, DamagedCsvIsNamed) {
    EXPECT_THAT(problemsOf("id,address\n1,\"a\n2,b\n"),
                ElementsAre("file:2: the quotation that begins here does not end"));
}

TEST(ReadServices, IdentifierThatOccursTwiceIsNamedWithBothLines) {
    EXPECT_THAT(problemsOf("id,address\n5,a\n6,b\n5,a\n"),
                ElementsAre("file:4: identifier 5 occurs twice, first in line 2"));
    EXPECT_THAT(problemsOf("[{\"id\":5,\"address\":\"a\"},\n\n{\"id\":5,\"address\":\"b\"}]"),
                ElementsAre("file:3: identifier 5 occurs twice, first in line 1"));
}

TEST(ReadServices, WrongPlacesInJsonAreNamed) {
    const std::pair<const char*, const char*> wrong[] = {
        {"{}", "file:1: here must be an array of services, not an object"},
        {"[\n1]", "file:2: here must be an object with id and address, not a number"},
        {"[\n[]]", "file:2: here must be an object with id and address, not an array"},
        {"[{\n\"id\":\n\"1\",\"address\":\"a\"}]",
         "file:3: the id must be a number, and is a string"},
        {"[{\n\"id\":1.5\n,\"address\":\"a\"}]",
         "file:2: the id must be a number, and is no whole number of 32 bits"},
        {"[{\"id\":\n-1e999}, 1]",
         "file:2: the id must be a number, and is no whole number of 32 bits"},
        {"[1e999]", "file:1: here must be an object with id and address, not a number"},
        {"[1.5]", "file:1: here must be an object with id and address, not a number"},
        {"[{\"id\":1,\"address\":1.5}]", "file:1: the address must be a string, and is a number"},
        {"[{\"id\":true,\"address\":\"a\"}]", "file:1: the id must be a number, and is a boolean"},
        {"[{\n\"id\":2147483648\n}]",
         "file:2: the id must be a number, and is out of range (-2147483648 to 2147483647)"},
        {"[{\"id\":-2147483649}]",
         "file:1: the id must be a number, and is out of range (-2147483648 to 2147483647)"},
        {"[{\"id\":18446744073709551615}]",
         "file:1: the id must be a number, and is out of range (-2147483648 to 2147483647)"},
        {"[{\"id\":1,\"address\":\n7}]", "file:2: the address must be a string, and is a number"},
        {"[{\"id\":1,\"address\":null}]", "file:1: the address must be a string, and is null"},
        {"[{\"id\":1,\"address\":[]}]", "file:1: here must be a string, not an array"},
        {"[{\"id\":{}}]", "file:1: here must be a number, not an object"},
        {"[\n{\"id\":1\n}]", "file:2: the service has no address"},
        {"[\n{\n}]", "file:2: the service has no id"},
        {"[{\"id\":1,\n\"id\":1}]", "file:2: there is a second 'id'"},
        {"[{\"id\":1,\"address\":\"a\",\"port\":1}]",
         "file:1: unknown key 'port'; a service has id and address"},
    };
    for (const auto& [text, problem] : wrong) {
        EXPECT_THAT(problemsOf(text), ElementsAre(problem)) << text;
    }
}

TEST(ReadServices, EveryWrongServiceOfJsonIsNamed) {
    EXPECT_THAT(problemsOf("[{\"id\":\"1\",\"address\":\"a\"},\n{\"id\":2},\n"
                           "{\"id\":3,\"address\":\"c\"}]"),
                ElementsAre(HasSubstr("file:1: "), HasSubstr("file:2: ")));
}

TEST(ReadServices, DamagedJsonIsNamedWithItsLine) {
    EXPECT_THAT(problemsOf("[{\"id\":1,\n\"address\":\"a\"},\n]"),
                ElementsAre(HasSubstr("file:3: syntax error")));
    EXPECT_THAT(problemsOf("[]\n\nx"), ElementsAre(HasSubstr("file:3: syntax error")));
    EXPECT_THAT(problemsOf("["), ElementsAre(HasSubstr("file:1: syntax error")));
    EXPECT_THAT(problemsOf("[{\"id\":1,\"address\":\"\xff\"}]"),
                ElementsAre(HasSubstr("ill-formed UTF-8")));
    EXPECT_THAT(problemsOf("[{\"id\":1,\"address\":\"\\ud800\"}]"), SizeIs(1));
    EXPECT_THAT(problemsOf("[\"" + std::string(100000, 'x')),
                ElementsAre(SizeIs(Le(std::size_t{300}))));
}

TEST(ReadServices, DamagedJsonIsShownInWholeCharacters) {
    EXPECT_THAT(problemsOf("[{\xe2\x80\x9cid\xe2\x80\x9d:1}]"),
                ElementsAre(HasSubstr("last read: '[{\xe2\x80\x9c'")));
    EXPECT_THAT(problemsOf("[\xc3\xa9"), ElementsAre(HasSubstr("last read: '[\xc3\xa9'")));
    EXPECT_THAT(problemsOf("[{1\xc3\xa9"), ElementsAre(EndsWith("expected string literal")));
    EXPECT_THAT(problemsOf("[\xc3"), ElementsAre(HasSubstr("last read: '[\xc3'")));
}

TEST(ReadServices, LongMessagesEndWithAWholeCharacter) {
    for (int before = 0; before < 3; ++before) {
        std::string text = "[{\"id\":1,\"address\":\"" + std::string(before, 'x');
        for (int count = 0; count < 100; ++count) {
            text += "\xe2\x82\xac";
        }
        const std::vector<std::string> problems = problemsOf(text);
        ASSERT_THAT(problems, ElementsAre(EndsWith("\xe2\x82\xac...")));
        EXPECT_THAT(problems[0], SizeIs(Le(std::size_t{171})));
    }
}

TEST(ReadServices, DeepJsonEndsAtItsFirstWrongPlace) {
    EXPECT_THAT(problemsOf(std::string(1000000, '[')), SizeIs(1));
}

TEST(ReadServices, NoMoreThanTenMistakesAreTold) {
    std::string text = "id,address\n";
    for (int i = 0; i < 1000; ++i) {
        text += "nonsense\n";
    }
    const std::vector<std::string> problems = problemsOf(text);
    EXPECT_THAT(problems, SizeIs(11));
    EXPECT_EQ(problems.back(), "file:12: more is wrong from here on");
}

TEST(ReadWholeFile, FailureIsExplained) {
    const TestFiles files;
    EXPECT_EQ(readWholeFile(files.write("a", std::string("x\0y", 3))), std::string("x\0y", 3));
    try {
        readWholeFile(files.path("none"));
        FAIL() << "read";
    } catch (const std::exception& error) {
        EXPECT_EQ(error.what(),
                  "cannot read " + files.path("none") + ": No such file or directory");
    }
    EXPECT_THROW(readWholeFile(files.path("")), std::exception);
}

}  // namespace
}  // namespace qv::host
