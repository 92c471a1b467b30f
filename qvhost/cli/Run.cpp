// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "ServiceAddress.h"
#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/HostConnection.h"
#include "cli/Numbers.h"
#include "cli/Subcommands.h"
#include "cli/UsageError.h"
#include "server/Service.h"

// POSIX leaves the declaration to programs.
extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace qv::host {

namespace {

constexpr char kRunFooter[] =
    "Registers the service, runs the command, and removes the service when the command ends. If\n"
    "the service cannot be registered, qvhost exits with 1 and does not run the command. A host\n"
    "that has lost the service meanwhile does not get it again.\n"
    "\n"
    "When the command has ended, qvhost looks at the service first. If the service has another\n"
    "address, another process has registered it, and it stays. Between this look and the removal,\n"
    "qvhost does not notice another process: what is registered then is removed.\n"
    "\n"
    "The exit status is that of the command, or 128 and the number of the signal that ended it,\n"
    "126 if the command cannot be run, and 127 if there is no such command. If the service\n"
    "cannot be removed, qvhost says so and keeps this status.\n"
    "\n"
    "SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1 and SIGUSR2 go on to the command.\n"
    "\n"
    "  qvhost run 7 /run/a.sock -- my-server /run/a.sock";

constexpr int kCannotRun = 126;
constexpr int kNoSuchCommand = 127;
constexpr int kSignalled = 128;  // and the number of the signal

constexpr int kForwarded[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2};

// Runs a command and waits for its end. Signals that arrive from the construction on wait for the
// command and go on to it.
class Command {
  public:
    Command() {
        sigemptyset(&awaited_);
        for (const int number : kForwarded) {
            sigaddset(&awaited_, number);
        }
        sigaddset(&awaited_, SIGCHLD);
        // While SIGCHLD is ignored, a system keeps no exit status, and some discard the signal.
        static_cast<void>(std::signal(SIGCHLD, [](int) {}));
        sigprocmask(SIG_BLOCK, &awaited_, &before_);
    }

    // Returns the status to exit with.
    int run(std::vector<std::string> words) {
        const int error = start(words);
        if (error != 0) {
            reportError(fmt::format("cannot run {}: {}", words.front(),
                                    std::generic_category().message(error)));
            return error == ENOENT ? kNoSuchCommand : kCannotRun;
        }
        std::optional<int> status;
        while (!(status = end())) {
            forwardSignal();
        }
        return WIFEXITED(*status) ? WEXITSTATUS(*status) : kSignalled + WTERMSIG(*status);
    }

  private:
    // Starts the command with the signals as qvhost had them. Returns 0 or the error number.
    int start(std::vector<std::string>& words) {
        std::vector<char*> pointers;
        pointers.reserve(words.size() + 1);
        for (std::string& word : words) {
            pointers.push_back(word.data());
        }
        pointers.push_back(nullptr);
        // guardStandardStreams() ignores these two, and the command would inherit that.
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        sigaddset(&defaults, SIGXFSZ);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setsigmask(&attributes, &before_);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
        const int error = posix_spawnp(&process_, words.front().c_str(), nullptr, &attributes,
                                       pointers.data(), environ);
        posix_spawnattr_destroy(&attributes);
        return error;
    }

    // Returns how the command ended, or nothing if it runs.
    std::optional<int> end() const {
        int status = 0;
        const pid_t ended = waitpid(process_, &status, WNOHANG);
        if (ended == -1) {
            throw std::system_error(errno, std::generic_category(), "cannot wait for the command");
        }
        return ended == 0 ? std::nullopt : std::optional(status);
    }

    // Waits for a signal and sends it to the command. A terminal sends its signals to the command
    // itself.
    void forwardSignal() const {
        int number = 0;
#ifdef __APPLE__
        const bool isFromTerminal = false;
        sigwait(&awaited_, &number);
#else
        siginfo_t info = {};
        number = sigwaitinfo(&awaited_, &info);
        const bool isFromTerminal = info.si_code == SI_KERNEL;
#endif
        if (number > 0 && number != SIGCHLD && !isFromTerminal) {
            kill(process_, number);
        }
    }

    sigset_t awaited_ = {};
    sigset_t before_ = {};
    pid_t process_ = -1;
};

// Removes the service, unless it has another address by now. A removal has no condition, so an
// address that another process registers after the look is removed too. Says on standard error if
// the removal fails.
void withdraw(const Service& service, const CommonOptions& options) {
    try {
        client::Client host = connectToHost(options);
        const std::optional<std::string> address = host.find(service.id);
        if (address && *address != service.address) {
            reportError(fmt::format("service {} has another address now, and stays", service.id));
        } else if (address) {
            reportChange(host.unregisterServices({service.id}),
                         "the service is removed, but a restart of the host may bring it back");
        }
    } catch (const client::Error& error) {
        reportError(
            fmt::format("service {} may still be registered: {}; remove it with `qvhost "
                        "unregister {}`",
                        service.id, error.what(), service.id));
    }
}

int runCommand(const std::string& id, const std::string& address,
               const std::vector<std::string>& words, const CommonOptions& options) {
    const Service service = {parseIdentifier(id), address};
    if (const char* const problem = problemOfAddress(address)) {
        throw UsageError(fmt::format("the address of {} {}", service.id, problem));
    }
    std::optional<client::Client> host = connectToHost(options);
    Command command;
    reportChange(host->registerServices({service}),
                 "the service is registered, but a restart of the host may lose it");
    // The host takes a limited number of clients.
    host.reset();
    const int status = command.run(words);
    withdraw(service, options);
    return status;
}

}  // namespace

void addRun(CommandLine& line) {
    struct Words {
        std::string id;
        std::string address;
        std::vector<std::string> command;
    };
    const auto words = std::make_shared<Words>();
    Subcommand subcommand =
        line.add("run", "Run a command while its service is registered", kRunFooter,
                 CommandLine::kHostOptions, [words, &options = line.options()] {
                     return runCommand(words->id, words->address, words->command, options);
                 });
    subcommand.word("ID", words->id, "The service's identifier");
    subcommand.word("ADDRESS", words->address, "The service's address");
    subcommand.words("COMMAND", words->command, "The command and its arguments, after a --");
}

}  // namespace qv::host
