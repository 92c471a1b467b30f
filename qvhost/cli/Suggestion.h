// Finds the word that a misspelt one was probably meant to be.
#ifndef QVHOST_CLI_SUGGESTION_H
#define QVHOST_CLI_SUGGESTION_H

#include <string_view>
#include <vector>

namespace qv::host {

// The candidate at most two edits away from `word`, letter case aside; the nearest one, and among
// equals the first. Empty when none is that near.
std::string_view closestWord(std::string_view word,
                             const std::vector<std::string_view>& candidates);

}  // namespace qv::host

#endif  // QVHOST_CLI_SUGGESTION_H
