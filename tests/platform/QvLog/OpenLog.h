// SPDX-License-Identifier: Apache-2.0

// Opens a log for a test, and reads its file.
#ifndef QV_TESTS_OPEN_LOG_H
#define QV_TESTS_OPEN_LOG_H

#include <cstddef>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "QvLog.h"

namespace qv::tests {

constexpr std::size_t kMaximalFileSize = 10UL * 1024 * 1024;

using Handle = std::unique_ptr<void, decltype(&LorxReleaseDbgLog)>;

inline Handle openLog(const std::string& path, int level = 7,
                      const char* module = "namingService") {
    return {LorxOpenDbgLog(path.c_str(), module, level), LorxReleaseDbgLog};
}

inline std::vector<std::string> linesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

// Returns the text of a record of the module namingService, or "malformed: " and the line if it is
// not a record.
inline std::string textOf(const std::string& line) {
    static const std::regex head(
        R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \d+/\d+ )"
        R"((emerg|alert|crit|err|warning|notice|info|debug) namingService: )");
    // The regular expression is applied to the beginning of the line only, since the matcher of the
    // library takes stack for every character.
    const std::string beginning = line.substr(0, 120);
    std::smatch match;
    if (!std::regex_search(beginning, match, head, std::regex_constants::match_continuous)) {
        return "malformed: " + line;
    }
    return line.substr(static_cast<std::size_t>(match.length()));
}

inline std::vector<std::string> textsOf(const std::string& path) {
    std::vector<std::string> texts;
    for (const std::string& line : linesOf(path)) {
        texts.push_back(textOf(line));
    }
    return texts;
}

}  // namespace qv::tests

#endif  // QV_TESTS_OPEN_LOG_H
