// SPDX-License-Identifier: Apache-2.0

#include "qvhost/PseudoTerminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace qv::host {

PseudoTerminal::PseudoTerminal() : screen_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    const char* const name = screen_ == -1 || ::grantpt(screen_) != 0 || ::unlockpt(screen_) != 0
                                 ? nullptr
                                 : ::ptsname(screen_);
    kept_ = name == nullptr ? -1 : ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (kept_ == -1) {
        throw std::system_error(errno, std::generic_category(), "cannot make a terminal");
    }
    path_ = name;
}

PseudoTerminal::~PseudoTerminal() {
    ::close(kept_);
    ::close(screen_);
}

void PseudoTerminal::setWidth(unsigned short columns) const {
    winsize size = {};
    size.ws_col = columns;
    if (::ioctl(screen_, TIOCSWINSZ, &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot set the terminal's width");
    }
}

std::string PseudoTerminal::readUntil(const std::string& text) const {
    std::string output;
    char c = '\0';
    while (output.find(text) == std::string::npos && ::read(screen_, &c, 1) == 1) {
        output += c;
    }
    return output;
}

}  // namespace qv::host
