#include "Script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "ScriptError.h"

namespace qv::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Lt;
using testing::Not;
using testing::SizeIs;
using Verb = Command::Verb;

// What parseCommand() says about a line that it must refuse.
std::string problemOf(std::string_view line) {
    try {
        static_cast<void>(parseCommand(line));
    } catch (const ScriptError& error) {
        return error.what();
    }
    ADD_FAILURE() << "accepted: " << line;
    return "";
}

Command parsed(std::string_view line) {
    const std::optional<Command> command = parseCommand(line);
    if (!command) {
        ADD_FAILURE() << "nothing in: " << line;
        return {};
    }
    return *command;
}

TEST(ParseCommand, RegisterTakesIdentifierAndAddress) {
    const Command command = parsed("register 12 /run/a.sock");
    EXPECT_EQ(command.verb, Verb::Register);
    EXPECT_EQ(command.number, 12);
    EXPECT_EQ(command.address, "/run/a.sock");
}

TEST(ParseCommand, AddressIsTheTrimmedRestOfTheLine) {
    EXPECT_EQ(parsed("register 1 \t a  b\tc \t ").address, "a  b\tc");
}

TEST(ParseCommand, AddressMayHoldAnyByteButNul) {
    EXPECT_EQ(parsed("register 1 \x1b[31m\xff\xc3\xa9").address, "\x1b[31m\xff\xc3\xa9");
}

TEST(ParseCommand, OtherVerbsAreRead) {
    EXPECT_EQ(parsed("unregister -3").verb, Verb::Unregister);
    EXPECT_EQ(parsed("unregister -3").number, -3);
    EXPECT_EQ(parsed("list").verb, Verb::List);
    EXPECT_EQ(parsed("level 7").verb, Verb::Level);
    EXPECT_EQ(parsed("level 7").number, 7);
    EXPECT_EQ(parsed("restart").verb, Verb::Restart);
}

TEST(ParseCommand, WhiteSpaceAroundACommandDoesNotMatter) {
    EXPECT_EQ(parsed(" \tlist \r").verb, Verb::List);
    EXPECT_EQ(parsed("level\t\t5\r").number, 5);
    EXPECT_EQ(parsed("register 1 a\r").address, "a");
}

TEST(ParseCommand, BlankLinesAndCommentsHoldNothing) {
    for (const char* line : {"", " ", "\t\r", "# list", "  # list", "#"}) {
        EXPECT_FALSE(parseCommand(line)) << line;
    }
}

TEST(ParseCommand, HashAfterWhiteSpaceBeginsAComment) {
    EXPECT_EQ(parsed("register 1 a # b").address, "a");
    EXPECT_EQ(parsed("register 1 a\t#b").address, "a");
    EXPECT_EQ(parsed("list # everything").verb, Verb::List);
}

TEST(ParseCommand, HashInsideAWordBelongsToIt) {
    EXPECT_EQ(parsed("register 1 a#b##c #d").address, "a#b##c");
}

TEST(ParseCommand, IdentifiersReachBothEndsOfTheirRange) {
    EXPECT_EQ(parsed("unregister 2147483647").number, std::numeric_limits<int32_t>::max());
    EXPECT_EQ(parsed("unregister -2147483648").number, std::numeric_limits<int32_t>::min());
    EXPECT_EQ(parsed("unregister 0x7fffffff").number, std::numeric_limits<int32_t>::max());
    EXPECT_EQ(parsed("unregister 0X1F").number, 31);
    EXPECT_EQ(parsed("unregister -0").number, 0);
}

TEST(ParseCommand, LeadingZeroIsNotOctal) {
    EXPECT_EQ(parsed("unregister 010").number, 10);
}

TEST(ParseCommand, IdentifierOutOfRangeIsRefusedWithTheRange) {
    for (const char* id : {"2147483648", "-2147483649", "0x80000000", "99999999999999999999"}) {
        EXPECT_THAT(problemOf(std::string("unregister ") + id),
                    AllOf(HasSubstr(id), HasSubstr("out of range"), HasSubstr("2147483647")));
    }
}

TEST(ParseCommand, WhatIsNoNumberIsRefused) {
    for (const char* id : {"x", "1x", "-", "--1", "+1", "0x", "-0x1", "0xg", "1.5", "1,", "0x-1"}) {
        EXPECT_THAT(problemOf(std::string("register ") + id + " a"),
                    AllOf(HasSubstr(id), HasSubstr("identifier must be a number")));
    }
}

TEST(ParseCommand, LevelIsLeftToThePluginButMustBeANumber) {
    EXPECT_EQ(parsed("level 9").number, 9);
    EXPECT_EQ(parsed("level -2147483648").number, std::numeric_limits<int32_t>::min());
    EXPECT_THAT(problemOf("level high"), HasSubstr("level must be a number (0 to 7)"));
    EXPECT_THAT(problemOf("level 2147483648"), HasSubstr("out of range (0 to 7)"));
}

TEST(ParseCommand, MissingArgumentsAreNamed) {
    EXPECT_THAT(problemOf("register"), HasSubstr("needs an identifier and an address"));
    EXPECT_THAT(problemOf("register 1"), HasSubstr("needs an address"));
    EXPECT_THAT(problemOf("unregister"), HasSubstr("needs an identifier"));
    EXPECT_THAT(problemOf("level"), HasSubstr("needs a number"));
}

TEST(ParseCommand, AddressThatLooksLikeACommentIsExplained) {
    EXPECT_THAT(problemOf("register 1 #tag"), HasSubstr("comment"));
}

TEST(ParseCommand, SurplusArgumentsAreRefused) {
    for (const char* line : {"unregister 1 2", "list all", "level 1 2", "restart now"}) {
        EXPECT_THAT(problemOf(line), HasSubstr("takes nothing more")) << line;
    }
}

TEST(ParseCommand, MisspeltCommandGetsASuggestion) {
    EXPECT_EQ(problemOf("registre 1 a"), "unknown command 'registre' (did you mean 'register'?)");
    EXPECT_EQ(problemOf("List"), "unknown command 'List' (did you mean 'list'?)");
}

TEST(ParseCommand, UnknownCommandGetsTheListOfCommands) {
    EXPECT_THAT(problemOf("quit"), HasSubstr("register, unregister, list, level, restart"));
}

TEST(ParseCommand, NulByteIsRefusedWhereverItStands) {
    EXPECT_THAT(problemOf(std::string("register 1 a\0b", 14)), HasSubstr("NUL"));
    EXPECT_THAT(problemOf(std::string("# \0", 3)), HasSubstr("NUL"));
}

TEST(ParseCommand, MessageAboutAHugeWordStaysShort) {
    EXPECT_THAT(problemOf(std::string(100000, 'x')), SizeIs(Lt(200)));
    EXPECT_THAT(problemOf("unregister " + std::string(100000, '9')), SizeIs(Lt(200)));
}

TEST(ParseCommand, LongWordIsNotCutInsideACharacter) {
    const std::string problem = problemOf(std::string(39, 'x') + "\xe2\x82\xac\xe2\x82\xac");
    EXPECT_THAT(problem, AllOf(HasSubstr("x...'"), Not(HasSubstr("\xe2"))));
}

}  // namespace
}  // namespace qv::host
