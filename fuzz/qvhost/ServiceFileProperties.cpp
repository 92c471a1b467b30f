// SPDX-License-Identifier: Apache-2.0

#include "qvhost/ServiceFileProperties.h"

#include <QvSystem/Utf8.h>
#include <QvText.h>
#include "cli/Output.h"
#include "cli/ServiceFile.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qvhost/ServiceFileLanguage.h"
#include "support/Require.h"

namespace qv::fuzz {
namespace {

using host::Format;
using host::ReadServices;
using host::Service;

constexpr std::string_view kFile = "list";
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr std::string_view kReplacement = "\xef\xbf\xbd";
constexpr std::string_view kMore = "more is wrong from here on";

// The bound of a message, whatever the file holds.
constexpr std::size_t kLongestMessage = 250;
// The number of mistakes that are told one by one.
constexpr std::size_t kMostProblems = 10;

ReadServices readText(const std::string& text, std::optional<Format> format) {
    return host::readServices(text, std::string(kFile), format);
}

bool isSame(const std::vector<Service>& one, const std::vector<Service>& other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](const Service& left, const Service& right) {
                          return left.id == right.id && left.address == right.address;
                      });
}

bool holdsControls(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    });
}

struct Problem {
    std::size_t line;
    std::string message;
};

Problem problemOf(const std::string& problem) {
    const std::string prefix = std::string(kFile) + ":";
    require(problem.compare(0, prefix.size(), prefix) == 0, "a problem does not name the file");
    const std::size_t end = problem.find(": ", prefix.size());
    const std::string line = problem.substr(prefix.size(), end - prefix.size());
    require(end != std::string::npos && !line.empty() && line.size() < 10 && line[0] != '0' &&
                line.find_first_not_of("0123456789") == std::string::npos,
            "a problem has no line");
    return {std::stoul(line), problem.substr(end + 2)};
}

void checkMessage(const std::string& message, const std::string& text) {
    require(!message.empty() && message.size() <= kLongestMessage, "a message has another length");
    require(!holdsControls(text::escaped(message)), "a message drives the terminal");
    const std::string_view library = "json.exception";
    require(message.find(library) == std::string::npos || text.find(library) != std::string::npos,
            "a message is the library's own");
    require(!isWellFormedUtf8(text) || isWellFormedUtf8(message),
            "a message has a part of a character");
}

std::vector<Problem> problemsOf(const ReadServices& read, const std::string& text) {
    const auto newlines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    const std::size_t lines = newlines + (text.empty() || text.back() != '\n' ? 1 : 0);
    std::vector<Problem> problems;
    for (const std::string& told : read.problems) {
        const Problem problem = problemOf(told);
        checkMessage(problem.message, text);
        require(problem.line >= 1 && problem.line <= lines, "a problem is in no line");
        require(problems.empty() || problem.line >= problems.back().line,
                "problems are not in the order of the lines");
        problems.push_back(problem);
    }
    for (std::size_t index = 0; index < problems.size(); ++index) {
        require((problems[index].message == kMore) == (index == kMostProblems),
                "another number of problems is told");
    }
    return problems;
}

// Checks that written services can be read back, and that writing them again gives the same text.
void checkWriting(const std::vector<Service>& services) {
    for (const Format format : {Format::Csv, Format::Json}) {
        const std::string text = host::formatServices(services, format);
        const ReadServices read = readText(text, std::nullopt);
        require(read.problems.empty() && isSame(read.services, services),
                "what is written reads back otherwise");
        require(host::formatServices(read.services, format) == text, "it is written otherwise");
        require(isWellFormedUtf8(text), "what is written is not UTF-8");
        require(format == Format::Csv || (text.find('\n') == text.size() - 1 &&
                                          !holdsControls(text.substr(0, text.size() - 1))),
                "JSON is not one line");
    }
}

void checkCsv(const ReadServices& read, const std::string& text, std::string_view content) {
    const CsvList list = listOfCsv(content);
    const std::vector<Problem> problems = problemsOf(read, text);
    require(problems.size() == std::min(list.wrongLines.size(), kMostProblems + 1),
            "CSV has other problems");
    for (std::size_t index = 0; index < problems.size(); ++index) {
        require(problems[index].line == list.wrongLines[index], "a problem is in another line");
    }
    if (problems.empty()) {
        require(isSame(read.services, list.services), "CSV has other services");
        checkWriting(read.services);
    }
}

// Returns the message up to a place where it may name another line, or show blanks before a
// mistake.
std::string_view withoutPlace(std::string_view message) {
    return message.substr(0, std::min(message.find("first in line"), message.find("last read")));
}

// Checks that blank lines before JSON move every mistake and change nothing else.
void checkMovedJson(const std::vector<Problem>& problems, std::string_view content) {
    // An empty text has no line to move. A cut byte order mark has a message of its own.
    if (content.empty() || content[0] == kByteOrderMark[0]) {
        return;
    }
    constexpr std::size_t kLines = 3;
    const std::string text = std::string(kLines, '\n').append(content);
    const std::vector<Problem> moved = problemsOf(readText(text, Format::Json), text);
    require(moved.size() == problems.size(), "JSON further down has other problems");
    for (std::size_t index = 0; index < moved.size(); ++index) {
        require(moved[index].line == problems[index].line + kLines, "a problem does not move");
        require(withoutPlace(moved[index].message) == withoutPlace(problems[index].message),
                "JSON further down has another problem");
    }
}

void checkJson(const ReadServices& read, const std::string& text, std::string_view content) {
    const std::optional<JsonList> list = listOfJson(text);
    const std::vector<Problem> problems = problemsOf(read, text);
    require(
        list ? problems.size() == std::min(list->problems, kMostProblems + 1) : !problems.empty(),
        "JSON has other problems");
    checkMovedJson(problems, content);
    if (problems.empty()) {
        require(isSame(read.services, list->services), "JSON has other services");
        checkWriting(read.services);
    }
}

void checkFormatFound(const ReadServices& found, const ReadServices& csv, const ReadServices& json,
                      std::string_view content) {
    while (!content.empty() && std::string_view(" \t\r\n").find(content[0]) != std::string::npos) {
        content.remove_prefix(1);
    }
    const bool isJson = !content.empty() && (content[0] == '[' || content[0] == '{');
    const ReadServices& expected = isJson ? json : csv;
    require(found.problems == expected.problems && isSame(found.services, expected.services),
            "the format is taken for another");
}

void checkAddress(const std::string& address) {
    const std::vector<Service> services = {{std::numeric_limits<std::int32_t>::min(), address},
                                           {std::numeric_limits<std::int32_t>::max(), "x"}};
    require(system::isUtf8(address) == isWellFormedUtf8(address),
            "what is UTF-8 is taken otherwise");
    const std::string text = host::formatServices(services, Format::Csv);
    const std::string json = host::formatServices(services, Format::Json);
    const ReadServices read = readText(text, Format::Csv);
    if (!isAddress(system::withReplacements(address))) {
        require(problemsOf(read, text).size() == 1 &&
                    problemsOf(readText(json, Format::Json), json).size() == 1,
                "an address that the directory cannot hold is read");
        return;
    }
    require(read.problems.empty() && read.services.size() == services.size(),
            "an address is not read");
    require(isWellFormedUtf8(address)
                ? isSame(read.services, services)
                : read.services[0].address.find(kReplacement) != std::string::npos,
            "an address is read as another");
    require(host::formatServices(read.services, Format::Json) == json,
            "CSV and JSON replace something else");
    checkWriting(read.services);
}

}  // namespace

void checkServiceFileProperties(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string_view content = text;
    if (content.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        content.remove_prefix(kByteOrderMark.size());
    }
    const ReadServices csv = readText(text, Format::Csv);
    const ReadServices json = readText(text, Format::Json);
    checkCsv(csv, text, content);
    checkJson(json, text, content);
    checkFormatFound(readText(text, std::nullopt), csv, json, content);
    checkAddress(text);
}

}  // namespace qv::fuzz
