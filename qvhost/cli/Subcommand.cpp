// SPDX-License-Identifier: Apache-2.0

#include "cli/Subcommand.h"

#include <CLI/CLI.hpp>
#include <utility>

namespace qv::host {

namespace {

template <class Variable>
CLI::Option* addOption(CLI::App& app, const std::string& name, const std::string& valueName,
                       Variable& variable, const std::string& description, ValueCheck check) {
    return app.add_option(name, variable, description)
        ->type_name(valueName)
        ->check(std::move(check));
}

}  // namespace

void Subcommand::flag(const std::string& name, bool& variable, const std::string& description) {
    app_->add_flag(name, variable, description);
}

void Subcommand::option(const std::string& name, const std::string& valueName,
                        std::string& variable, const std::string& description, ValueCheck check) {
    addOption(*app_, name, valueName, variable, description, std::move(check))
        ->capture_default_str();
}

void Subcommand::option(const std::string& name, const std::string& valueName,
                        std::size_t& variable, const std::string& description, ValueCheck check) {
    addOption(*app_, name, valueName, variable, description, std::move(check))
        ->capture_default_str();
}

void Subcommand::option(const std::string& name, const std::string& valueName,
                        std::vector<std::string>& variable, const std::string& description,
                        ValueCheck check) {
    addOption(*app_, name, valueName, variable, description, std::move(check))
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void Subcommand::describe(const std::string& name, const std::string& description) {
    app_->get_option(name)->description(description);
}

void Subcommand::word(const std::string& name, std::string& variable,
                      const std::string& description, Need need, ValueCheck check) {
    addOption(*app_, name, "", variable, description, std::move(check))
        ->required(need == Need::Required);
}

void Subcommand::words(const std::string& name, std::vector<std::string>& variable,
                       const std::string& description, Need need) {
    addOption(*app_, name, "", variable, description, isAnything())
        ->required(need == Need::Required);
}

}  // namespace qv::host
