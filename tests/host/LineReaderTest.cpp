#include "LineReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <system_error>
#include <vector>

#include "ScriptError.h"
#include "TestFiles.h"

namespace qv::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> linesOf(const std::string& content) {
    const TestFiles files;
    LineReader reader = LineReader::openFile(files.write("script", content));
    std::vector<std::string> lines;
    for (std::string line; reader.next(line);) {
        lines.push_back(line);
    }
    return lines;
}

TEST(LineReader, SplitsAtNewlines) {
    EXPECT_THAT(linesOf("a\n\nb\n"), ElementsAre("a", "", "b"));
}

TEST(LineReader, LastLineNeedsNoNewline) {
    EXPECT_THAT(linesOf("a\nb"), ElementsAre("a", "b"));
}

TEST(LineReader, EmptyFileHasNoLines) {
    EXPECT_THAT(linesOf(""), IsEmpty());
}

TEST(LineReader, KeepsEveryOtherByte) {
    EXPECT_THAT(linesOf(std::string("a\0\xff\r\n", 5)), ElementsAre(std::string("a\0\xff\r", 4)));
}

TEST(LineReader, ByteOrderMarkIsNoText) {
    EXPECT_THAT(linesOf("\xef\xbb\xbflist\n\xef\xbb\xbf\n"), ElementsAre("list", "\xef\xbb\xbf"));
    EXPECT_THAT(linesOf("\xef\xbb\xbf\nlist"), ElementsAre("", "list"));
}

TEST(LineReader, PlaceIsNameAndLineNumber) {
    const TestFiles files;
    const std::string path = files.write("script", "a\nb\n");
    LineReader reader = LineReader::openFile(path);
    std::string line;
    reader.next(line);
    EXPECT_EQ(reader.place(), path + ":1");
    reader.next(line);
    EXPECT_EQ(reader.place(), path + ":2");
}

TEST(LineReader, MissingFileCannotBeOpened) {
    const TestFiles files;
    EXPECT_THROW(LineReader::openFile(files.path("none")), std::system_error);
}

TEST(LineReader, DirectoryCannotBeRead) {
    const TestFiles files;
    std::string line;
    EXPECT_THROW(LineReader::openFile(files.path(".")).next(line), std::system_error);
}

TEST(LineReader, LongestLineIsReadAndALongerOneRefused) {
    EXPECT_EQ(linesOf(std::string(LineReader::kLongestLine, 'x')).at(0).size(),
              LineReader::kLongestLine);
    EXPECT_THROW(linesOf(std::string(LineReader::kLongestLine + 1, 'x')), ScriptError);
}

}  // namespace
}  // namespace qv::host
