// SPDX-License-Identifier: Apache-2.0

#include "Worker.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

namespace qv::tests {
namespace {

// These bytes end the decoding of a request to which they are appended.
constexpr char kDamage[] = "\xff\xff\xff";

// The values that registrations write: each registration of each thread has its own.
Value valueOf(Value first, std::size_t registration, std::size_t thread) {
    return first + static_cast<Value>(registration * kThreads + thread);
}

}  // namespace

void Worker::run(int calls) {
    noticeProblems([&] {
        for (int call = 0; call < calls; ++call) {
            callAnything();
        }
    });
}

void Worker::registerOnceMore() {
    noticeProblems([&] { registerSome(); });
}

template <class Action>
void Worker::noticeProblems(Action action) {
    try {
        action();
    } catch (const std::exception& exception) {
        problem_ = exception.what();
    } catch (const std::string& thrown) {
        problem_ = thrown;
    }
}

void Worker::callAnything() {
    const int share = upTo(99);
    if (share < 11) {
        registerSome();
    } else if (share < 20) {
        unregisterSome();
    } else if (share < 50) {
        registerWhatIsThere();
    } else if (share < 80) {
        list();
    } else if (share < 92) {
        setDebugLevel();
    } else {
        sendDamage();
    }
}

void Worker::registerSome() {
    std::vector<std::size_t> services = someKeys();
    services.push_back(layout_.mark(thread_));
    services.push_back(layout_.secondMark(thread_));
    change(QV_COMMAND_REGISTER_SERVICES, services, valueOf(first_, registrations_++, thread_));
}

void Worker::unregisterSome() {
    if (changes_.empty() || changes_.back().value == kAbsent) {
        registerSome();
        return;
    }
    std::vector<std::size_t> services = someKeys();
    services.push_back(layout_.secondMark(thread_));
    change(QV_COMMAND_UNREGISTER_SERVICES, services, kAbsent);
}

void Worker::change(std::uint32_t command, std::vector<std::size_t> services, Value value) {
    std::shuffle(services.begin(), services.end(), random_);
    Services request;
    Change change;
    for (const std::size_t service : services) {
        request.push_back(names_.service(service, value));
    }
    for (std::size_t key = 0; key < kKeys; ++key) {
        if (std::count(services.begin(), services.end(), layout_.key(key)) != 0) {
            change.keys.push_back(key);
        }
    }
    change.value = value;
    // The plug-in carries out what it decodes before the damage.
    change.time = execute(command, encode(request) + (upTo(9) == 0 ? kDamage : ""), QV_OK);
    changes_.push_back(std::move(change));
}

void Worker::registerWhatIsThere() {
    Services request;
    for (int count = 1 + upTo(3); count > 0; --count) {
        const std::size_t service = someKeys().front() + 1;
        request.push_back(names_.service(service, initial_[service]));
    }
    execute(QV_COMMAND_REGISTER_SERVICES, encode(request), QV_OK);
}

void Worker::list() {
    const Interval time = execute(QV_COMMAND_GET_SERVICES, "", QV_OK);
    listings_.push_back({time, names_.valuesOf(answer_)});
}

// Sets a random level. Level 7 is rare, because it logs every registered service.
void Worker::setDebugLevel() {
    const char level = static_cast<char>(upTo(9) == 0 ? 7 : upTo(6));
    execute(QV_COMMAND_SET_DEBUG_LEVEL, std::string("\x08\x01\x10") + level, QV_OK);
}

void Worker::sendDamage() {
    switch (upTo(3)) {
        case 0:
            execute(QV_COMMAND_REGISTER_SERVICES, kDamage, QV_OK);
            break;
        case 1:
            execute(QV_COMMAND_UNREGISTER_SERVICES, kDamage, QV_OK);
            break;
        case 2:
            execute(QV_COMMAND_SET_DEBUG_LEVEL, "\x08\x01\x10\x08", QV_ERROR_ARGUMENT);
            break;
        default:
            execute(QV_COMMAND_SET_DEBUG_LEVEL, std::string("\x10\x03") + kDamage, QV_OK);
    }
}

// Executes a command and stores its answer in `answer_`.
Interval Worker::execute(std::uint32_t command, const std::string& request, int expected) {
    ++calls_;
    Interval time;
    time.begin = now();
    Answer answer = plugin_.execute(command, request);
    time.end = now();
    if (answer.result != expected) {
        throw std::runtime_error("command " + std::to_string(command) + " returned " +
                                 std::to_string(answer.result));
    }
    answer_ = std::move(answer.bytes);
    return time;
}

// Returns the services of some keys. A service may occur twice.
std::vector<std::size_t> Worker::someKeys() {
    std::vector<std::size_t> services;
    for (int count = 1 + upTo(3); count > 0; --count) {
        services.push_back(layout_.key(static_cast<std::size_t>(upTo(kKeys - 1))));
    }
    return services;
}

Reading readingOf(Interval time, const Values& values, const Values& initial,
                  const std::vector<std::vector<Change>>& changes) {
    const Layout layout(values.size());
    for (std::size_t service = 0; service < values.size(); ++service) {
        if (values[service] != initial[service] && !layout.changes(service)) {
            throw std::runtime_error("a service has changed that nobody changes");
        }
    }
    Reading reading{time, std::vector<std::size_t>(kThreads), keysOf(values)};
    for (std::size_t thread = 0; thread < kThreads; ++thread) {
        const Value mark = values[layout.mark(thread)];
        const Value second = values[layout.secondMark(thread)];
        if (mark == initial[layout.mark(thread)] && second == mark) {
            continue;
        }
        const auto& own = changes[thread];
        const auto last = std::find_if(
            own.begin(), own.end(), [mark](const Change& change) { return change.value == mark; });
        const auto next = last == own.end() ? last : last + 1;
        const bool isRemoved = second == kAbsent && next != own.end() && next->value == kAbsent;
        if (last == own.end() || mark == kAbsent || (second != mark && !isRemoved)) {
            throw std::runtime_error("a listing has impossible marks");
        }
        reading.seen[thread] = static_cast<std::size_t>(next - own.begin()) + (isRemoved ? 1 : 0);
    }
    return reading;
}

Values keysOf(const Values& values) {
    const Layout layout(values.size());
    Values keys;
    for (std::size_t key = 0; key < kKeys; ++key) {
        keys.push_back(values[layout.key(key)]);
    }
    return keys;
}

}  // namespace qv::tests
