// SPDX-License-Identifier: Apache-2.0

// Parses the command line of qvhost. Holds its subcommands and the options that several of them
// share, and explains mistakes.
//
//     CommandLine line;
//     addList(line);
//     ...
//     return line.run(argc, argv);
//
// The options of a subcommand stand after its name. Shared options may also stand before it. The
// arguments after a lone -- are no options, whatever they begin with.
#ifndef QVHOST_CLI_COMMAND_LINE_H
#define QVHOST_CLI_COMMAND_LINE_H

#include <functional>
#include <memory>
#include <string>

#include "cli/Subcommand.h"

namespace qv::host {

struct CommonOptions {
    std::string plugin;
    std::string configDirectory;
    std::string logDirectory;
    std::string socket;
    std::string timeout;  // empty if it is not given
    bool json = false;
};

class CommandLine {
  public:
    // The shared options that a subcommand takes.
    enum Shared : unsigned {
        kConfigurationOption = 1,  // --config-dir
        kPluginOptions = 2,        // --plugin, --log-dir
        kSocketOption = 4,
        kTimeoutOption = 8,
        kJsonOption = 16,

        // Of those that ask the resident host.
        kHostOptions = kSocketOption | kTimeoutOption,
    };

    CommandLine();
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    // Adds a subcommand. `execute` carries it out and returns the exit status. The caller adds the
    // subcommand's own options to the returned object.
    Subcommand add(const std::string& name, const std::string& description,
                   const std::string& footer, unsigned shared, std::function<int()> execute);

    // Returns the shared options. They are filled before a subcommand is executed, and live as long
    // as the command line.
    const CommonOptions& options() const { return options_; }

    // Executes the subcommand that the arguments name and returns the exit status. Throws
    // UsageError, and whatever the subcommand throws.
    int run(int argc, char** argv);

  private:
    void addShared(CLI::App& app, unsigned shared);

    std::unique_ptr<CLI::App> app_;
    CommonOptions options_;
    std::function<int()> chosen_;
};

}  // namespace qv::host

#endif  // QVHOST_CLI_COMMAND_LINE_H
