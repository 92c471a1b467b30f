// SPDX-License-Identifier: Apache-2.0

// Encodes commands to Redis in its protocol, RESP.
#ifndef QV_BENCH_RESP_MESSAGES_H
#define QV_BENCH_RESP_MESSAGES_H

#include <string>
#include <vector>

namespace qv::bench::resp {

// Ends each line.
constexpr char kEnd[] = "\r\n";

// Returns a command with its arguments.
inline std::string command(const std::vector<std::string>& words) {
    std::string bytes = "*" + std::to_string(words.size()) + kEnd;
    for (const std::string& word : words) {
        bytes += "$" + std::to_string(word.size()) + kEnd + word + kEnd;
    }
    return bytes;
}

// The first byte of an answer that reports an error.
constexpr char kError = '-';

// The first byte of an answer that is a string: its length, a line's end, its bytes, a line's end.
constexpr char kString = '$';

// Is the answer in place of a string that does not exist.
constexpr char kNothing[] = "$-1\r\n";

}  // namespace qv::bench::resp

#endif  // QV_BENCH_RESP_MESSAGES_H
