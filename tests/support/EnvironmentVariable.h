// SPDX-License-Identifier: Apache-2.0

// Sets or unsets a variable of the environment while an object lives.
#ifndef QV_TESTS_ENVIRONMENT_VARIABLE_H
#define QV_TESTS_ENVIRONMENT_VARIABLE_H

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace qv::tests {

class EnvironmentVariable {
  public:
    // Sets the variable, or unsets it if there is no value.
    EnvironmentVariable(std::string name, const std::optional<std::string>& value)
        : name_(std::move(name)) {
        if (const char* const previous = std::getenv(name_.c_str())) {
            previous_ = previous;
        }
        put(value);
    }
    ~EnvironmentVariable() { put(previous_); }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    EnvironmentVariable(EnvironmentVariable&&) = delete;
    EnvironmentVariable& operator=(EnvironmentVariable&&) = delete;

  private:
    void put(const std::optional<std::string>& value) {
        if (value) {
            ::setenv(name_.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name_.c_str());
        }
    }

    std::string name_;
    std::optional<std::string> previous_;
};

}  // namespace qv::tests

#endif  // QV_TESTS_ENVIRONMENT_VARIABLE_H
