// SPDX-License-Identifier: Apache-2.0

// A subcommand of qvhost: its flags, its options, and the words that stand without a name. Only the
// implementation includes the library that parses the command line, because its headers take
// seconds to compile.
//
//     Subcommand list = line.add("list", ...);
//     list.flag("--csv", own->csv, "Print CSV instead of a table");
//     list.option("--match", "GLOB", own->match, "Print only services that fit", notEmpty());
//
// The variables are filled before the subcommand is executed. They must live as long as the command
// line. The help shows the content of a variable as the option's default.
#ifndef QVHOST_CLI_SUBCOMMAND_H
#define QVHOST_CLI_SUBCOMMAND_H

#include <cstddef>
#include <string>
#include <vector>

#include "cli/OptionValues.h"

namespace CLI {
class App;
}  // namespace CLI

namespace qv::host {

class Subcommand {
  public:
    enum class Need { Required, Optional };

    // The parser's object must live longer than this one.
    explicit Subcommand(CLI::App& app) : app_(&app) {}

    // Adds a flag, which sets the variable to true.
    void flag(const std::string& name, bool& variable, const std::string& description);

    // Add an option with one value. `valueName` stands for the value in the help. `check` must
    // refuse what is no number if the variable is one.
    void option(const std::string& name, const std::string& valueName, std::string& variable,
                const std::string& description, ValueCheck check);
    void option(const std::string& name, const std::string& valueName, std::size_t& variable,
                const std::string& description, ValueCheck check);

    // Adds an option that may be given several times, with one value each time.
    void option(const std::string& name, const std::string& valueName,
                std::vector<std::string>& variable, const std::string& description,
                ValueCheck check);

    // Changes the description of an option that several subcommands share.
    void describe(const std::string& name, const std::string& description);

    // Add one word, or all words that follow the others.
    void word(const std::string& name, std::string& variable, const std::string& description,
              Need need = Need::Required, ValueCheck check = isAnything());
    void words(const std::string& name, std::vector<std::string>& variable,
               const std::string& description, Need need = Need::Required);

  private:
    CLI::App* app_;
};

}  // namespace qv::host

#endif  // QVHOST_CLI_SUBCOMMAND_H
