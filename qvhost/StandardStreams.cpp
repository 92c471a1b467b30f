// SPDX-License-Identifier: Apache-2.0

#include "StandardStreams.h"

#include <QvText.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <exception>
#include <string>
#include <system_error>

namespace qv::host {

namespace {

std::string lineOf(std::string_view message) {
    return "qvhost: " + text::printable(message) + '\n';
}

}  // namespace

void guardStandardStreams() {
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
            // The lowest free descriptor is this one. It is opened for the wrong direction on
            // purpose: using it fails, as using a closed one does.
            static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

void writeOutput(std::FILE* out, std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), out) != text.size() || std::fflush(out) != 0) {
        const std::error_code error(errno, std::generic_category());
        constexpr char kAttempt[] = "cannot write to standard output";
        if (error == std::errc::broken_pipe) {
            throw OutputClosed(error, kAttempt);
        }
        throw std::system_error(error, kAttempt);
    }
}

void reportError(std::string_view message) noexcept {
    try {
        writeOutput(stderr, lineOf(message));
    } catch (const std::exception&) {
        return;
    }
}

void writeJournal(std::string_view message) noexcept {
    try {
        const std::string line = lineOf(message);
        // A pipe that is ready takes PIPE_BUF bytes without waiting.
        pollfd errors = {STDERR_FILENO, POLLOUT, 0};
        if (line.size() <= PIPE_BUF && poll(&errors, 1, 0) == 1 && errors.revents == POLLOUT) {
            [[maybe_unused]] const ssize_t written =
                ::write(STDERR_FILENO, line.data(), line.size());
        }
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace qv::host
