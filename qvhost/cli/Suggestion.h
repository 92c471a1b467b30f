// SPDX-License-Identifier: Apache-2.0

// Finds the word that a misspelt word probably stands for.
#ifndef QVHOST_CLI_SUGGESTION_H
#define QVHOST_CLI_SUGGESTION_H

#include <string_view>
#include <vector>

namespace qv::host {

// Returns the candidate that is nearest to `word`, at most two edits away. Letter case does not
// count. Among equals the first wins. Returns an empty text if no candidate is that near.
std::string_view closestWord(std::string_view word,
                             const std::vector<std::string_view>& candidates);

}  // namespace qv::host

#endif  // QVHOST_CLI_SUGGESTION_H
