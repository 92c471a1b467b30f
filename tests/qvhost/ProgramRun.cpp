// SPDX-License-Identifier: Apache-2.0

#include "qvhost/ProgramRun.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <system_error>

// POSIX leaves the declaration to programs.
extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace qv::host {

namespace {

void check(bool succeeded, const std::string& attempt) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), attempt);
    }
}

void closeDescriptor(int& descriptor) {
    if (descriptor != -1) {
        close(descriptor);
        descriptor = -1;
    }
}

// Makes a pipe whose ends do not outlive an exec. So the stream ends for the child when this
// process closes its end.
void makePipe(int (&ends)[2]) {
    check(pipe(ends) == 0, "cannot make a pipe");
    for (const int end : ends) {
        check(fcntl(end, F_SETFD, FD_CLOEXEC) == 0, "cannot set up a pipe");
    }
}

int openFile(const std::string& path, int flags) {
    const int descriptor = open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, 0600);
    check(descriptor != -1, "cannot open " + path);
    return descriptor;
}

// These variables would lead the program to other files, or choose its colours.
constexpr std::string_view kLeftOut[] = {"QV_CONFIG_DIR", "QV_LOG_DIR", "QV_RUN_DIR", "NO_COLOR",
                                         "TERM"};

std::vector<std::string> cleanEnvironment() {
    std::vector<std::string> clean;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        const std::string name = text.substr(0, text.find('='));
        if (std::find(std::begin(kLeftOut), std::end(kLeftOut), name) == std::end(kLeftOut)) {
            clean.push_back(text);
        }
    }
    return clean;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

}  // namespace

ProgramRun::ProgramRun() : outputFile_(files_.path("out")), errorFile_(files_.path("err")) {
    std::filesystem::create_directory(files_.path("config"));
    files_.write("config/namingService.conf.plist", "<plist version='1.0'><dict/></plist>");
    // A test that writes to a program that has ended must get an error instead of a signal.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
}

ProgramRun::~ProgramRun() {
    closeDescriptor(toChild_);
    closeDescriptor(fromChild_);
    if (child_ != -1) {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
}

void ProgramRun::setOutput(const char* path) {
    outputClosed_ = path == nullptr;
    outputFile_ = path == nullptr ? "/dev/null" : path;
}

void ProgramRun::spawn(const std::vector<std::string>& arguments, int input, int output) {
    std::vector<std::string> words = {program_};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables = cleanEnvironment();
    variables.push_back("QV_CONFIG_DIR=" + files_.path("config"));
    variables.push_back("QV_LOG_DIR=" + files_.path("log"));
    variables.insert(variables.end(), variables_.begin(), variables_.end());

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    if (outputClosed_) {
        posix_spawn_file_actions_addclose(&actions, STDOUT_FILENO);
    } else {
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    }
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile_.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // The program must not inherit that this process ignores the signal.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const int error = posix_spawn(&child_, words[0].c_str(), &actions, &attributes,
                                  pointers(words).data(), pointers(variables).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    errno = error;
    check(error == 0, "cannot run " + words[0]);
}

int ProgramRun::wait() {
    int status = 0;
    while (waitpid(child_, &status, 0) == -1) {
        check(errno == EINTR, "cannot wait for the program");
    }
    child_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

ProgramOutcome ProgramRun::run(const std::vector<std::string>& arguments,
                               const std::string& input) {
    int in = openFile(files_.write("in", input), O_RDONLY);
    int out = openFile(outputFile_, O_WRONLY | O_CREAT | O_TRUNC);
    spawn(arguments, in, out);
    closeDescriptor(in);
    closeDescriptor(out);
    ProgramOutcome outcome;
    outcome.status = wait();
    if (outputFile_ == files_.path("out")) {
        outcome.out = readFile(outputFile_);
    }
    outcome.err = readFile(files_.path("err"));
    return outcome;
}

void ProgramRun::start(const std::vector<std::string>& arguments, Output output) {
    int in[2];
    int out[2] = {-1, -1};
    makePipe(in);
    if (output == kOutputPipe) {
        makePipe(out);
    } else {
        out[1] = openFile(outputFile_, O_WRONLY);
    }
    spawn(arguments, in[0], out[1]);
    closeDescriptor(in[0]);
    closeDescriptor(out[1]);
    toChild_ = in[1];
    fromChild_ = out[0];
}

void ProgramRun::write(const std::string& text) const {
    check(::write(toChild_, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
          "cannot write to the program");
}

std::string ProgramRun::readUntil(const std::string& text) const {
    std::string output;
    char c = '\0';
    while (output.find(text) == std::string::npos && read(fromChild_, &c, 1) == 1) {
        output += c;
    }
    return output;
}

void ProgramRun::signal(int number) const {
    check(kill(child_, number) == 0, "cannot send the program a signal");
}

void ProgramRun::closeOutput() {
    closeDescriptor(fromChild_);
}

ProgramOutcome ProgramRun::finish() {
    closeDescriptor(toChild_);
    ProgramOutcome outcome;
    outcome.status = wait();
    closeDescriptor(fromChild_);
    outcome.err = readFile(files_.path("err"));
    return outcome;
}

}  // namespace qv::host
