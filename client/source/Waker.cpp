// SPDX-License-Identifier: Apache-2.0

#include "Waker.h"

#include <fcntl.h>
#include <poll.h>

#ifdef __APPLE__
#include <sys/event.h>
#else
#include <sys/epoll.h>
#include <sys/timerfd.h>
#endif

#include <cerrno>
#include <system_error>

#include "QvClient.h"

namespace qv::client {

namespace {

void check(bool succeeded) {
    if (!succeeded) {
        const int error = errno;
        throw Error(Error::Kind::CannotConnect, error,
                    "cannot wait for the host: " + std::generic_category().message(error));
    }
}

#ifdef __APPLE__
constexpr uintptr_t kTimer = 1;

int change(int queue, uintptr_t what, int16_t filter, uint16_t flags, intptr_t data) {
    struct kevent event = {};
    EV_SET(&event, what, filter, flags, 0, data, nullptr);
    return kevent(queue, &event, 1, nullptr, 0, nullptr);
}
#endif

}  // namespace

#ifdef __APPLE__

Waker::Waker() : queue_(kqueue()) {
    check(static_cast<bool>(queue_));
    fcntl(queue_.get(), F_SETFD, FD_CLOEXEC);
}

void Waker::watch(int socket, bool forSending) {
    ignore(socket);
    const auto what = static_cast<uintptr_t>(socket);
    check(change(queue_.get(), what, EVFILT_READ, EV_ADD, 0) == 0);
    if (forSending) {
        check(change(queue_.get(), what, EVFILT_WRITE, EV_ADD, 0) == 0);
    }
}

void Waker::ignore(int socket) noexcept {
    const auto what = static_cast<uintptr_t>(socket);
    change(queue_.get(), what, EVFILT_READ, EV_DELETE, 0);
    change(queue_.get(), what, EVFILT_WRITE, EV_DELETE, 0);
}

void Waker::wakeAt(const Deadline& time) {
    change(queue_.get(), kTimer, EVFILT_TIMER, EV_DELETE, 0);
    if (time.exists()) {
        check(change(queue_.get(), kTimer, EVFILT_TIMER, EV_ADD | EV_ONESHOT,
                     time.milliseconds()) == 0);
    }
}

#else

Waker::Waker()
    : queue_(epoll_create1(EPOLL_CLOEXEC)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    check(queue_ && timer_);
    epoll_event event = {};
    event.events = EPOLLIN;
    check(epoll_ctl(queue_.get(), EPOLL_CTL_ADD, timer_.get(), &event) == 0);
}

void Waker::watch(int socket, bool forSending) {
    ignore(socket);
    epoll_event event = {};
    event.events = forSending ? EPOLLIN | EPOLLOUT : EPOLLIN;
    check(epoll_ctl(queue_.get(), EPOLL_CTL_ADD, socket, &event) == 0);
}

void Waker::ignore(int socket) noexcept {
    epoll_event event = {};
    epoll_ctl(queue_.get(), EPOLL_CTL_DEL, socket, &event);
}

void Waker::wakeAt(const Deadline& time) {
    itimerspec setting = {};  // stops the timer
    if (time.exists()) {
        const int left = time.milliseconds();
        setting.it_value.tv_sec = left / 1000;
        setting.it_value.tv_nsec = left > 0 ? left % 1000 * 1'000'000L : 1;
    }
    check(timerfd_settime(timer_.get(), 0, &setting, nullptr) == 0);
}

#endif

void Waker::wait(const Deadline& deadline) const {
    pollfd entry = {queue_.get(), POLLIN, 0};
    check(poll(&entry, 1, deadline.milliseconds()) != -1 || errno == EINTR);
}

}  // namespace qv::client
