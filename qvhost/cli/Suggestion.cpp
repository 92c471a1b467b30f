// SPDX-License-Identifier: Apache-2.0

#include "cli/Suggestion.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace qv::host {

namespace {

constexpr std::size_t kFarthest = 2;

char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Levenshtein's distance, one row of the table at a time.
std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced =
                diagonal + (lowered(a[i - 1]) == lowered(b[j - 1]) ? 0U : 1U);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string_view closestWord(std::string_view word,
                             const std::vector<std::string_view>& candidates) {
    std::string_view closest;
    std::size_t least = kFarthest + 1;
    for (const std::string_view candidate : candidates) {
        // A word of a megabyte is no misspelling, and must not cost a megabyte's comparison.
        if (word.size() > candidate.size() + kFarthest) {
            continue;
        }
        const std::size_t distance = editDistance(word, candidate);
        // Every word of one or two letters is two edits away from some short name.
        if (distance < least && distance < word.size()) {
            closest = candidate;
            least = distance;
        }
    }
    return closest;
}

}  // namespace qv::host
