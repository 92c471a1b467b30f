// SPDX-License-Identifier: Apache-2.0

// Checks the values of options. Each check says in the program's own words which value the option
// needs.
#ifndef QVHOST_CLI_OPTION_VALUES_H
#define QVHOST_CLI_OPTION_VALUES_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace qv::host {

// Returns what is wrong with a value, or an empty text.
using ValueCheck = std::function<std::string(const std::string&)>;

// Refuses nothing.
ValueCheck isAnything();

// Refuses an empty name, which is probably a shell variable that is not set. The default would be a
// surprise.
ValueCheck notEmpty();

// Refuses a text that is not a decimal number from `least` to `most`.
ValueCheck isWholeNumber(uint64_t least, uint64_t most);

// Refuses a text that is none of these words.
ValueCheck isOneOf(std::vector<std::string> words);

}  // namespace qv::host

#endif  // QVHOST_CLI_OPTION_VALUES_H
