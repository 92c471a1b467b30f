// SPDX-License-Identifier: Apache-2.0

// Provides the measured property lists in tests/data, and functions for their JSON.
#ifndef QV_TESTS_MEASUREDDOCUMENTS_H
#define QV_TESTS_MEASUREDDOCUMENTS_H

#include <cstdio>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <utility>

namespace qv::tests {

struct MeasuredDocuments {
    const char* file;
    int count;
};

inline constexpr MeasuredDocuments kMeasuredDocuments[] = {
    {"plist-cases.jsonl", 457}, {"plist-damaged.jsonl", 1000}, {"plist-corners.jsonl", 166}};

// Parses a line of such a file. The JSON library does not accept a string of one lone surrogate.
// Such a string becomes a "utf16" node, like longer strings with a lone surrogate.
inline nlohmann::json parseMeasured(const std::string& line) {
    if (line.find(R"("\ud)") == std::string::npos) {
        return nlohmann::json::parse(line);
    }
    static const std::regex lone(R"x(\{"string": ?"\\u(d[89a-f][0-9a-f]{2})"\})x");
    return nlohmann::json::parse(std::regex_replace(line, lone, R"({"utf16":"$1"})"));
}

// Returns a JSON object with one entry. The value is moved, since some trees are too deep to be
// copied at every level.
inline nlohmann::json node(const char* kind, nlohmann::json value) {
    nlohmann::json object = nlohmann::json::object();
    object[kind] = std::move(value);
    return object;
}

inline std::string hexOf(const std::u16string& units) {
    std::string hex;
    for (const char16_t unit : units) {
        char digits[5];
        std::snprintf(digits, sizeof digits, "%04x", static_cast<unsigned>(unit));
        hex += digits;
    }
    return hex;
}

}  // namespace qv::tests

#endif  // QV_TESTS_MEASUREDDOCUMENTS_H
