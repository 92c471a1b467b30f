#include "Worker.h"

#include <exception>
#include <stdexcept>
#include <utility>

namespace qv::tests {
namespace {

// These bytes end the decoding of a request to which they are appended.
constexpr char kDamage[] = "\xff\xff\xff";

template <class Choice>
const Choice& anyOf(std::mt19937& random, const std::vector<Choice>& choices) {
    return choices[std::uniform_int_distribution<std::size_t>(0, choices.size() - 1)(random)];
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
    noticeProblems([&] { registerNewAddresses(); });
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
    if (share < 8) {
        registerNewAddresses();
    } else if (share < 11) {
        registerOwnAgain();
    } else if (share < 20) {
        unregister();
    } else if (share < 50) {
        registerWhatIsThere();
    } else if (share < 80) {
        list();
    } else if (share < 92) {
        setDebugLevel();
        record_.addOther();
    } else {
        sendDamage();
        record_.addOther();
    }
}

void Worker::registerNewAddresses() {
    Write write;
    for (const std::size_t service : someOfTheGroups()) {
        write.emplace_back(service, fresh_.take());
    }
    own_ = write;
    change(QV_COMMAND_REGISTER_SERVICES, write, Saves::kSurely);
}

// Registers the own services again. Other threads may have changed or removed them.
void Worker::registerOwnAgain() {
    if (!own_.empty()) {
        change(QV_COMMAND_REGISTER_SERVICES, own_, Saves::kPerhaps);
    }
}

void Worker::unregister() {
    Write write;
    for (const std::size_t service : someOfTheGroups()) {
        write.emplace_back(service, kAbsent);
    }
    change(QV_COMMAND_UNREGISTER_SERVICES, write, Saves::kNever);
}

void Worker::registerWhatIsThere() {
    Write write;
    for (int count = 1 + upTo(3); count > 0; --count) {
        // The service after a changing one never changes.
        const std::size_t service = anyOf(random_, anyOf(random_, groups_)) + 1;
        write.emplace_back(service, initial_[service]);
    }
    change(QV_COMMAND_REGISTER_SERVICES, write, Saves::kNever);
}

void Worker::change(std::uint32_t command, const Write& write, Saves saves) {
    Services services;
    for (const auto& [service, value] : write) {
        services.push_back(names_.service(service, value));
    }
    // The plug-in carries out what it decodes before the damage.
    const std::string request = encode(services) + (upTo(9) == 0 ? kDamage : "");
    const Interval time = execute(command, request, QV_OK);
    record_.addWrite(time, write, saves);
}

void Worker::list() {
    const Interval time = execute(QV_COMMAND_GET_SERVICES, "", QV_OK);
    record_.addListing(time, names_.valuesOf(answer_));
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

// Returns some services, half of the time from one group only. A service may occur twice.
Group Worker::someOfTheGroups() {
    const bool together = upTo(1) == 0;
    const Group* group = &anyOf(random_, groups_);
    Group services;
    for (int count = 1 + upTo(3); count > 0; --count) {
        services.push_back(anyOf(random_, *group));
        if (!together) {
            group = &anyOf(random_, groups_);
        }
    }
    return services;
}

}  // namespace qv::tests
