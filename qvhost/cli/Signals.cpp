// SPDX-License-Identifier: Apache-2.0

#include "cli/Signals.h"

#include <unistd.h>

#include <csignal>

namespace qv::host {

namespace {

constexpr int kInterrupting[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t arrived = 0;

void note(int number) {
    arrived = number;
}

// Replaces the handler of each signal that has the handler `from`. A handler ends with its first
// signal.
void replaceHandlers(void (*from)(int), void (*to)(int)) {
    for (const int number : kInterrupting) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == from) {
            action.sa_handler = to;
            action.sa_flags = static_cast<int>(SA_RESETHAND);
            sigaction(number, &action, nullptr);
        }
    }
}

}  // namespace

Interruption::Interruption() {
    arrived = 0;
    replaceHandlers(SIG_DFL, note);
}

Interruption::~Interruption() {
    replaceHandlers(note, SIG_DFL);
}

int Interruption::signal() const {
    return arrived;
}

void endBySignal(int number) {
    static_cast<void>(std::signal(number, SIG_DFL));
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, number);
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    static_cast<void>(std::raise(number));
    _exit(128 + number);
}

}  // namespace qv::host
