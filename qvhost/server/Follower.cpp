// SPDX-License-Identifier: Apache-2.0

#include "server/Follower.h"

#include <QvFrame.h>
#include <QvPlugin.h>
#include <QvSystem/ThreadSafety.h>
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <list>
#include <new>
#include <thread>
#include <utility>

#include "server/ErrorText.h"
#include "server/FollowedPlugin.h"

namespace qv::host {

namespace {

using Clock = Pace::Clock;
using SystemClock = std::chrono::system_clock;

constexpr char kEnding[] = "the host ends";

// Returns the text, or a short one if there is no memory for it.
std::string copyOf(std::string_view text) {
    try {
        return std::string(text);
    } catch (const std::bad_alloc&) {
        return kOutOfMemory;
    }
}

void giveAnswer(const Follower::Answer& answer, uint32_t code, std::string_view text) {
    answer({code, copyOf(text)});
}

}  // namespace

class Follower::Work {
  public:
    Work(Plugin& plugin, StoredFile file, Recorder& recorder, std::function<void()> initialize,
         const Recorder::Report& report, const Pace::Settings& pace)
        : recorder_(recorder),
          report_(report),
          pace_(pace),
          followed_(plugin, std::move(file), recorder, std::move(initialize), report) {}

    void start();
    void stop();

    void published() noexcept;
    void addReload(std::function<void(std::string)> done);
    void addSync(Answer answer);
    void addLevel(std::string input, Answer answer);
    Statistics statistics() const;

  private:
    struct Sync {
        int64_t revision;
        Answer answer;
    };
    struct Level {
        std::string input;
        Answer answer;
    };
    // Lists, because they hand their elements on without memory.
    struct Wishes {
        std::list<std::function<void(std::string)>> reloads;
        std::list<Sync> syncs;
        std::list<Level> levels;

        bool empty() const { return reloads.empty() && syncs.empty() && levels.empty(); }
    };

    bool isBehind() const;
    std::optional<Clock::time_point> nextTurn() const;
    bool take(Wishes& wishes);
    void run();
    void execute(Wishes& wishes);
    void reload(const Wishes& wishes);
    void answerWithoutTurn();
    void turn();
    template <class Action>
    void measured(Action action);
    void finish(Clock::duration length, SystemClock::time_point begin);
    void tell(const char* what, const std::string& why) const noexcept;

    Recorder& recorder_;
    const Recorder::Report report_;

    // Only the follower's thread uses these, and start() before there is a thread.
    Pace pace_;
    std::list<Sync> syncs_;
    std::string problem_;
    FollowedPlugin followed_;

    mutable system::Mutex mutex_;
    system::Condition wake_;
    Wishes wishes_ QV_GUARDED_BY(mutex_);
    bool isStopping_ QV_GUARDED_BY(mutex_) = false;
    bool isEnded_ QV_GUARDED_BY(mutex_) = false;
    Statistics statistics_ QV_GUARDED_BY(mutex_);

    std::thread thread_;
};

void Follower::Work::start() {
    measured([this] { problem_ = followed_.start(); });
    thread_ = std::thread([this] { run(); });
}

void Follower::Work::stop() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const system::MutexLock lock(mutex_);
        isStopping_ = true;
    }
    wake_.notifyOne();
    thread_.join();
}

void Follower::Work::published() noexcept {
    const Recorder::StatePointer state = recorder_.state();
    {
        const system::MutexLock lock(mutex_);
        // Once the file is behind, the thread looks for itself.
        if (statistics_.behindSince || state->snapshot->revision() <= statistics_.fileRevision) {
            return;
        }
        statistics_.behindSince = SystemClock::now();
    }
    wake_.notifyOne();
}

void Follower::Work::addReload(std::function<void(std::string)> done) {
    {
        const system::MutexLock lock(mutex_);
        if (!isEnded_) {
            wishes_.reloads.push_back(std::move(done));
            wake_.notifyOne();
            return;
        }
    }
    done(kEnding);
}

void Follower::Work::addSync(Answer answer) {
    const int64_t revision = recorder_.state()->snapshot->revision();
    {
        const system::MutexLock lock(mutex_);
        if (!isEnded_) {
            wishes_.syncs.push_back({revision, std::move(answer)});
            wake_.notifyOne();
            return;
        }
    }
    giveAnswer(answer, QV_HOST_ERROR_STOPPING, kEnding);
}

void Follower::Work::addLevel(std::string input, Answer answer) {
    {
        const system::MutexLock lock(mutex_);
        if (!isEnded_) {
            wishes_.levels.push_back({std::move(input), std::move(answer)});
            wake_.notifyOne();
            return;
        }
    }
    giveAnswer(answer, QV_HOST_ERROR_STOPPING, kEnding);
}

Follower::Statistics Follower::Work::statistics() const {
    const system::MutexLock lock(mutex_);
    return statistics_;
}

bool Follower::Work::isBehind() const {
    return !problem_.empty() || recorder_.state()->snapshot->revision() != followed_.fileRevision();
}

// Returns when the next turn is due, or nothing if the file holds the directory.
std::optional<Clock::time_point> Follower::Work::nextTurn() const {
    if (syncs_.empty() && !isBehind()) {
        return std::nullopt;
    }
    return pace_.next(!syncs_.empty());
}

// Waits for something to do. Returns false if the thread is to end.
bool Follower::Work::take(Wishes& wishes) {
    const system::MutexLock lock(mutex_);
    while (!isStopping_ && wishes_.empty()) {
        const std::optional<Clock::time_point> due = nextTurn();
        if (!due) {
            wake_.wait(mutex_);
        } else if (Clock::now() < *due) {
            wake_.waitUntil(mutex_, *due);
        } else {
            break;
        }
    }
    std::swap(wishes, wishes_);
    return !isStopping_;
}

void Follower::Work::run() {
    bool isRunning = true;
    while (isRunning) {
        Wishes wishes;
        isRunning = take(wishes);
        execute(wishes);
        const std::optional<Clock::time_point> due = nextTurn();
        if (due && (!isRunning || Clock::now() >= *due)) {
            turn();
        }
    }
    try {
        followed_.finalize();
    } catch (const std::bad_alloc&) {
        // The plug-in is finalised. Memory was short for a line of the journal.
        problem_.clear();
    }
    Wishes late;
    {
        const system::MutexLock lock(mutex_);
        isEnded_ = true;
        std::swap(late, wishes_);
    }
    for (const std::function<void(std::string)>& done : late.reloads) {
        done(kEnding);
    }
    for (const Sync& sync : late.syncs) {
        giveAnswer(sync.answer, QV_HOST_ERROR_STOPPING, kEnding);
    }
    for (const Level& level : late.levels) {
        giveAnswer(level.answer, QV_HOST_ERROR_STOPPING, kEnding);
    }
}

void Follower::Work::execute(Wishes& wishes) {
    syncs_.splice(syncs_.end(), wishes.syncs);
    for (const Level& level : wishes.levels) {
        try {
            Outcome outcome = followed_.setLevel(level.input);
            {
                const system::MutexLock lock(mutex_);
                statistics_.level = followed_.level();
            }
            level.answer(std::move(outcome));
        } catch (const std::bad_alloc&) {
            giveAnswer(level.answer, QV_HOST_ERROR_PLUGIN, kOutOfMemory);
        }
    }
    if (!wishes.reloads.empty()) {
        reload(wishes);
    }
    answerWithoutTurn();
}

void Follower::Work::reload(const Wishes& wishes) {
    measured([this] {
        try {
            problem_ = followed_.start();
        } catch (const std::exception& error) {
            problem_ = textOf(error);
        }
    });
    for (const std::function<void(std::string)>& done : wishes.reloads) {
        done(copyOf(problem_));
    }
}

// Answers those who wait for a file that is there already. Somebody may have changed it since.
void Follower::Work::answerWithoutTurn() {
    if (syncs_.empty() || !problem_.empty() || !followed_.isAsRead()) {
        return;
    }
    const auto answered = [this](const Sync& sync) {
        const bool isThere = sync.revision <= followed_.fileRevision();
        if (isThere) {
            giveAnswer(sync.answer, QV_OK, "");
        }
        return isThere;
    };
    syncs_.remove_if(answered);
}

// Brings the file up, and answers those who waited for it when the turn began.
void Follower::Work::turn() {
    measured([this] { problem_ = followed_.update(); });
    const uint32_t code = problem_.empty() ? uint32_t{QV_OK} : uint32_t{QV_HOST_ERROR_FILE};
    const std::list<Sync> syncs = std::move(syncs_);
    syncs_.clear();
    for (const Sync& sync : syncs) {
        giveAnswer(sync.answer, code, problem_);
    }
}

// Runs what brings the file up, which sets `problem_`. Decides when the next turn may begin.
template <class Action>
void Follower::Work::measured(Action action) {
    const Clock::time_point begin = Clock::now();
    const SystemClock::time_point beginTime = SystemClock::now();
    {
        const system::MutexLock lock(mutex_);
        statistics_.since = begin;
    }
    action();
    finish(Clock::now() - begin, beginTime);
}

void Follower::Work::finish(Clock::duration length, SystemClock::time_point begin) {
    pace_.ended(Clock::now(), length, problem_.empty());
    std::string problem = copyOf(problem_);
    std::string start = copyOf(followed_.summary());
    {
        const system::MutexLock lock(mutex_);
        statistics_.since.reset();
        statistics_.fileRevision = followed_.fileRevision();
        statistics_.longest = std::max(
            statistics_.longest, std::chrono::duration_cast<std::chrono::microseconds>(length));
        statistics_.start.swap(start);
        statistics_.level = followed_.level();
        statistics_.problem.swap(problem);
        if (problem_.empty()) {
            ++statistics_.saves;
            // What the file does not hold yet was published since the turn began.
            statistics_.behindSince.reset();
        }
        if (isBehind() && !statistics_.behindSince) {
            statistics_.behindSince = begin;
        }
    }
    // The former problem is in the text that changed places.
    if (problem_ != problem) {
        if (problem_.empty()) {
            tell("the directory is in its file again: ", followed_.file().path());
        } else {
            tell("the file does not follow the directory: ", problem_);
        }
    }
}

void Follower::Work::tell(const char* what, const std::string& why) const noexcept {
    try {
        report_(what + why);
    } catch (const std::exception&) {
        // There is no memory for the line. Nobody relies on it.
        return;
    }
}

Follower::Follower(Plugin& plugin, StoredFile file, Recorder& recorder,
                   std::function<void()> initialize, const Recorder::Report& report,
                   const Pace::Settings& pace)
    : work_(std::make_unique<Work>(plugin, std::move(file), recorder, std::move(initialize), report,
                                   pace)) {}

Follower::Follower(Plugin& plugin, StoredFile file, Recorder& recorder,
                   std::function<void()> initialize, const Recorder::Report& report)
    : Follower(plugin, std::move(file), recorder, std::move(initialize), report, Pace::Settings()) {
}

Follower::~Follower() {
    stop();
}

void Follower::start() {
    work_->start();
}

void Follower::published() noexcept {
    work_->published();
}

void Follower::reload(std::function<void(std::string problem)> done) {
    work_->addReload(std::move(done));
}

void Follower::sync(Answer answer) {
    work_->addSync(std::move(answer));
}

void Follower::setLevel(std::string input, Answer answer) {
    work_->addLevel(std::move(input), std::move(answer));
}

Follower::Statistics Follower::statistics() const {
    return work_->statistics();
}

void Follower::stop() {
    work_->stop();
}

}  // namespace qv::host
