// SPDX-License-Identifier: Apache-2.0

#include "cli/CsvReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Fields = std::vector<std::string>;

std::vector<Fields> recordsOf(std::string_view text) {
    CsvReader reader(text);
    CsvReader::Record record;
    std::vector<Fields> records;
    while (reader.next(record)) {
        records.push_back(record.fields);
    }
    return records;
}

// Returns the line and the text of the error.
std::pair<std::size_t, std::string> errorOf(std::string_view text) {
    try {
        recordsOf(text);
    } catch (const CsvReader::Error& error) {
        return {error.line(), error.what()};
    }
    ADD_FAILURE() << "read: " << text;
    return {};
}

TEST(CsvReader, LineEndsWithCrLfOrLfOrTheText) {
    const std::vector<Fields> records = {{"a", "b"}, {"c", ""}};
    EXPECT_EQ(recordsOf("a,b\r\nc,\r\n"), records);
    EXPECT_EQ(recordsOf("a,b\nc,\n"), records);
    EXPECT_EQ(recordsOf("a,b\r\nc,"), records);
}

TEST(CsvReader, QuotedFieldsHoldAnything) {
    EXPECT_THAT(recordsOf("\"a,b\",\"say \"\"hi\"\"\"\n\"\",\"x\r\ny\nz\"\r\n"),
                ElementsAre(Fields{"a,b", "say \"hi\""}, Fields{"", "x\r\ny\nz"}));
    EXPECT_THAT(recordsOf("\"\"\"\""), ElementsAre(Fields{"\""}));
}

TEST(CsvReader, WhiteSpaceBelongsToTheField) {
    EXPECT_THAT(recordsOf(" a ,\tb"), ElementsAre(Fields{" a ", "\tb"}));
}

TEST(CsvReader, BlankLinesMeanNothing) {
    EXPECT_THAT(recordsOf(""), IsEmpty());
    EXPECT_THAT(recordsOf("\n\r\n\n"), IsEmpty());
    EXPECT_THAT(recordsOf("\na\n\n\r\nb\n\n"), ElementsAre(Fields{"a"}, Fields{"b"}));
}

TEST(CsvReader, NulBytesAndBytesBeyondAsciiAreText) {
    const std::string text("a\0\xff,b", 5);
    EXPECT_THAT(recordsOf(text), ElementsAre(Fields{std::string("a\0\xff", 3), "b"}));
}

TEST(CsvReader, RecordKnowsItsFirstLine) {
    CsvReader reader("a\n\n\"x\ny\r\nz\",b\nc\n");
    CsvReader::Record record;
    std::vector<std::size_t> lines;
    while (reader.next(record)) {
        lines.push_back(record.line);
    }
    EXPECT_THAT(lines, ElementsAre(1, 3, 6));
}

TEST(CsvReader, KeepsFewFieldsOfARecordAndCountsAll) {
    const std::string text = std::string(100000, ',') + "\"x\ny\"\na,b\n";
    CsvReader reader(text);
    CsvReader::Record record;
    ASSERT_TRUE(reader.next(record));
    EXPECT_EQ(record.count, 100001U);
    EXPECT_THAT(record.fields, testing::SizeIs(std::size_t{CsvReader::kMostFields}));
    ASSERT_TRUE(reader.next(record));
    EXPECT_EQ(record.line, 3U);
    EXPECT_EQ(record.count, 2U);
    EXPECT_THAT(record.fields, ElementsAre("a", "b"));
}

TEST(CsvReader, ErrorNamesTheLine) {
    EXPECT_EQ(errorOf("a\n\"b\nc").first, 2U);
    EXPECT_THAT(errorOf("a\n\"b\nc").second, HasSubstr("does not end"));
    EXPECT_EQ(errorOf("a\nb\"c\n").first, 2U);
    EXPECT_THAT(errorOf("a\nb\"c\n").second, HasSubstr("a quotation mark stands inside"));
    EXPECT_THAT(errorOf("\"a\nb\" \n"), testing::Pair(2U, HasSubstr("something follows")));
    EXPECT_THAT(errorOf("a\rb\n").second, HasSubstr("a carriage return"));
    EXPECT_THAT(errorOf("a\r").second, HasSubstr("a carriage return"));
    EXPECT_THAT(errorOf("\"").second, HasSubstr("does not end"));
}

}  // namespace
}  // namespace qv::host
