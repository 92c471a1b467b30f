// SPDX-License-Identifier: Apache-2.0

#include "qvhost/HostProcess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace qv::host {

namespace {

void check(bool succeeded, const char* attempt) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), attempt);
    }
}

}  // namespace

HostProcess::HostProcess() {
    std::filesystem::create_directory(files_.path("config"));
    files_.write("config/namingService.conf.plist", "<plist version='1.0'><dict/></plist>");
}

HostProcess::~HostProcess() {
    if (child_ != -1) {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
    }
    if (errorPipe_ != -1) {
        ::close(errorPipe_);
    }
}

void HostProcess::disturbPlugin(const std::string& behaviour) {
    setBehaviour(behaviour);
    pluginOptions_ = {"--plugin", QVHOST_DISTURBED_PLUGIN};
    setVariable("QVHOST_FAKE", "@" + files_.path("behaviour"));
    setVariable("QVHOST_FAKE_RECORD", files_.path("record"));
    setVariable("QVHOST_FAKE_PIPE", files_.path("pipe"));
}

// Renames a new file, because the plug-in may be reading the old one.
void HostProcess::setBehaviour(const std::string& behaviour) const {
    std::filesystem::rename(files_.write("behaviour.new", behaviour), files_.path("behaviour"));
}

void HostProcess::becomeHost(const std::vector<std::string>& options, int errors) {
    ::dup2(errors, STDERR_FILENO);
    int next = STDERR_FILENO;
    for (const int descriptor : passed_) {
        ::dup2(descriptor, ++next);
    }
    if (!passed_.empty()) {
        ::setenv("LISTEN_FDS", std::to_string(passed_.size()).c_str(), 1);
        ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
    }
    // These variables would lead the host to other files.
    for (const char* name : {"QV_CONFIG_DIR", "QV_LOG_DIR", "QV_RUN_DIR"}) {
        ::unsetenv(name);
    }
    for (const auto& [name, value] : variables_) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    if (preparation_) {
        preparation_();
    }
    std::vector<std::string> words = {QVHOST_PROGRAM,
                                      "--config-dir",
                                      files_.path("config"),
                                      "--log-dir",
                                      files_.path("log"),
                                      "serve",
                                      "--socket",
                                      socket_};
    words.insert(words.end(), pluginOptions_.begin(), pluginOptions_.end());
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    ::execv(QVHOST_PROGRAM, pointers.data());
    ::_exit(127);
}

void HostProcess::launch(const std::vector<std::string>& options) {
    int ends[2];
    check(::pipe2(ends, O_CLOEXEC) == 0, "cannot make a pipe");
    child_ = ::fork();
    check(child_ != -1, "cannot start a process");
    if (child_ == 0) {
        becomeHost(options, ends[1]);
    }
    ::close(ends[1]);
    if (errorPipe_ != -1) {
        ::close(errorPipe_);
    }
    errorPipe_ = ends[0];
    errors_.clear();
}

bool HostProcess::start(const std::vector<std::string>& options) {
    launch(options);
    return waitForError("qvhost: serving on ");
}

bool HostProcess::readErrors() {
    char part[4096];
    const ssize_t count = ::read(errorPipe_, part, sizeof part);
    check(count >= 0, "cannot read what the host says");
    errors_.append(part, static_cast<std::size_t>(count));
    return count != 0;
}

bool HostProcess::waitForError(const std::string& text) {
    while (errors_.find(text) == std::string::npos) {
        if (!readErrors()) {
            return false;
        }
    }
    return true;
}

void HostProcess::signal(int number) const {
    // The system takes -1 for every process.
    if (child_ == -1) {
        throw std::logic_error("the host has ended");
    }
    check(::kill(child_, number) == 0, "cannot send the host a signal");
}

int HostProcess::wait() {
    while (readErrors()) {
    }
    int status = 0;
    check(::waitpid(child_, &status, 0) == child_, "cannot wait for the host");
    child_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace qv::host
