// qvhost's command line: its commands, the options that several of them share, and what is said to
// who mistypes one.
//
//     CommandLine line;
//     addList(line);
//     ...
//     return line.run(argc, argv);
//
// A command takes its options behind its name; those that are shared may stand before it, too.
#ifndef QVHOST_CLI_COMMAND_LINE_H
#define QVHOST_CLI_COMMAND_LINE_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace qv::host {

struct CommonOptions {
    std::string plugin;
    std::string configDirectory;
    std::string logDirectory;
    std::string socket;
    bool json = false;
};

class CommandLine {
  public:
    // Which of the shared options a command takes.
    enum Shared : unsigned {
        kConfigurationOption = 1,  // --config-dir
        kPluginOptions = 2,        // --plugin, --log-dir
        kSocketOption = 4,
        kJsonOption = 8,
    };

    CommandLine();

    // Adds a command, which `execute` carries out and which gives the exit status. Own options go
    // to what this returns.
    CLI::App& add(const std::string& name, const std::string& description,
                  const std::string& footer, unsigned shared, std::function<int()> execute);

    // Filled when a command is executed; lives as long as the command line.
    const CommonOptions& options() const { return options_; }

    // Executes what the arguments say and returns the exit status. Throws UsageError, and what the
    // command throws.
    int run(int argc, char** argv);

  private:
    void addShared(CLI::App& app, unsigned shared);
    [[noreturn]] void refuse(const CLI::ParseError& error) const;

    CLI::App app_;
    CommonOptions options_;
    std::function<int()> chosen_;
};

// Refuses an empty name: it is a shell variable that was not set, and the default would be a
// surprise.
CLI::Validator notEmpty();

}  // namespace qv::host

#endif  // QVHOST_CLI_COMMAND_LINE_H
