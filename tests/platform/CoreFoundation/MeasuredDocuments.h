// The measured property lists in tests/data.
#ifndef QV_TESTS_MEASUREDDOCUMENTS_H
#define QV_TESTS_MEASUREDDOCUMENTS_H

#include <nlohmann/json.hpp>
#include <regex>
#include <string>

namespace qv::tests {

struct MeasuredDocuments {
    const char* file;
    int count;
};

inline constexpr MeasuredDocuments kMeasuredDocuments[] = {
    {"plist-cases.jsonl", 457}, {"plist-damaged.jsonl", 1000}, {"plist-corners.jsonl", 166}};

// Parses a line of such a file. A string of one lone surrogate, which the JSON library does not
// take, becomes a "utf16" node, which is how the files write the others.
inline nlohmann::json parseMeasured(const std::string& line) {
    static const std::regex lone(R"x(\{"string": ?"\\u(d[89a-f][0-9a-f]{2})"\})x");
    return nlohmann::json::parse(std::regex_replace(line, lone, R"({"utf16":"$1"})"));
}

}  // namespace qv::tests

#endif  // QV_TESTS_MEASUREDDOCUMENTS_H
