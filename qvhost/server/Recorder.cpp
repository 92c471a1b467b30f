// SPDX-License-Identifier: Apache-2.0

#include "server/Recorder.h"

#include <QvFrame.h>
#include <QvPlugin.h>
#include <QvSystem/ThreadSafety.h>
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <new>
#include <thread>
#include <utility>

#include "server/CommitQueue.h"

namespace qv::host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kFirstRetry(100);
constexpr std::chrono::milliseconds kLastRetry(30'000);

// Assigns a text, or one that needs no memory if there is none.
void assign(std::string& to, const char* text) noexcept {
    try {
        to = text;
    } catch (const std::bad_alloc&) {
        to = "out of memory";
    }
}

}  // namespace

class Recorder::Work {
  public:
    Work(std::string path, Report report);

    void start() {
        thread_ = std::thread([this] { run(); });
    }
    void stop();

    bool hasRecord() const;
    StatePointer state() const;
    bool isNewest(const State* state) const { return state == newest_.load(); }
    const History& history() const { return history_; }
    void submit(std::shared_ptr<ChangeBatch> batch) { queue_.submit(std::move(batch)); }
    StatePointer replace(const std::vector<Service>& services);
    FileNote fileNote() const;
    bool note(const FileNote& note);
    Statistics statistics() const;

    std::function<void()> published;

  private:
    using Job = CommitQueue::Job;
    using Wish = CommitQueue::Wish;

    void publish(StatePointer state) QV_REQUIRES(mutex_);
    std::optional<Clock::time_point> retryAt() const;
    void run();
    Clock::duration carryOut(const Job& job);
    void count(Clock::duration length, std::size_t changes) QV_REQUIRES(mutex_);
    bool keep(const Snapshot& snapshot, const Edits& edits, bool hasWish);
    void keepAll(const Snapshot& snapshot);
    Record::Contents openRecord();
    void writeEpoch(int64_t revision);
    void cannotKeep(const char* reason) noexcept;
    void tell(const char* what, const std::string& why = "") const noexcept;
    void finish(const Job& job, bool isKept, bool isOutOfMemory) noexcept;

    const std::string path_;
    const Report report_;
    History history_{History::newEpoch()};

    CommitQueue queue_;

    // Only the recorder's thread uses these, and the constructor before there is a thread.
    AnsweredClients answeredClients_;
    std::unique_ptr<Record> record_;
    bool isKept_ = true;
    std::string reason_;
    std::chrono::milliseconds retryDelay_ = kFirstRetry;
    Clock::time_point retryAt_;

    // Is held for moments only, so that a reader never waits for a commit.
    mutable system::Mutex mutex_;
    FileNote note_ QV_GUARDED_BY(mutex_);
    bool hasRecord_ QV_GUARDED_BY(mutex_) = false;
    StatePointer state_ QV_GUARDED_BY(mutex_);
    std::atomic<const State*> newest_ = nullptr;  // the same, to compare with
    Statistics statistics_ QV_GUARDED_BY(mutex_);

    std::thread thread_;
};

Recorder::Work::Work(std::string path, Report report)
    : path_(std::move(path)), report_(std::move(report)) {
    const auto state = std::make_shared<State>();
    try {
        Record::Contents contents = openRecord();
        hasRecord_ = contents.revision != 0;
        note_ = std::move(contents.file);
        history_.begin(contents.epoch, contents.revision);
        state->snapshot = std::make_shared<const Snapshot>(contents.revision, contents.services);
        writeEpoch(contents.revision);
    } catch (const RecordError& error) {
        if (Record::hasContent(path_)) {
            throw;
        }
        cannotKeep(error.what());
        state->snapshot = std::make_shared<const Snapshot>();
        state->isKept = false;
        state->reason = reason_;
    }
    const system::MutexLock lock(mutex_);
    publish(state);
}

void Recorder::Work::publish(StatePointer state) {
    newest_ = state.get();
    state_ = std::move(state);
}

// Opens the record, or a new one if it is damaged, and reads it.
Record::Contents Recorder::Work::openRecord() {
    record_.reset();
    try {
        record_ = std::make_unique<Record>(path_, history_.epoch());
        return record_->read();
    } catch (const RecordError& error) {
        record_.reset();
        if (error.kind() != RecordError::Kind::Damaged) {
            throw;
        }
        const std::string name = Record::setAside(path_);
        report_(fmt::format("{}; it is now {}", error.what(), name));
    }
    record_ = std::make_unique<Record>(path_, history_.epoch());
    return record_->read();
}

// Makes the record name this run, so that the next one knows what clients of this run have seen.
void Recorder::Work::writeEpoch(int64_t revision) {
    try {
        record_->commit(revision, {}, nullptr);
    } catch (const RecordError&) {
        // The record holds the directory all the same. The next change opens it again.
        record_.reset();
    }
}

void Recorder::Work::stop() {
    if (!thread_.joinable()) {
        return;
    }
    queue_.stop();
    thread_.join();
}

bool Recorder::Work::hasRecord() const {
    const system::MutexLock lock(mutex_);
    return hasRecord_;
}

Recorder::StatePointer Recorder::Work::state() const {
    const system::MutexLock lock(mutex_);
    return state_;
}

Recorder::StatePointer Recorder::Work::replace(const std::vector<Service>& services) {
    const Snapshot snapshot(0, services);
    Wish wish;
    wish.replacement = &snapshot;
    queue_.fulfil(wish);
    if (wish.isOutOfMemory) {
        throw std::bad_alloc();
    }
    return state();
}

FileNote Recorder::Work::fileNote() const {
    const system::MutexLock lock(mutex_);
    return note_;
}

bool Recorder::Work::note(const FileNote& note) {
    {
        FileNote copy = note;
        const system::MutexLock lock(mutex_);
        std::swap(note_, copy);
    }
    Wish wish;
    queue_.fulfil(wish);
    return wish.isKept;
}

Recorder::Statistics Recorder::Work::statistics() const {
    const system::MutexLock lock(mutex_);
    return statistics_;
}

// Returns when the record is to be tried again, if it could not be written.
std::optional<Clock::time_point> Recorder::Work::retryAt() const {
    return isKept_ ? std::nullopt : std::optional(retryAt_);
}

void Recorder::Work::run() {
    Job job;
    while (queue_.take(job, retryAt())) {
        const Clock::duration wait = carryOut(job);
        job.batches.clear();
        job.wishes.clear();
        answeredClients_.takeNextChanges(wait);
    }
    if (!isKept_) {
        retryAt_ = Clock::now();
        static_cast<void>(keep(*state()->snapshot, {}, false));
    }
    if (record_ != nullptr) {
        try {
            record_->close();
        } catch (const RecordError& error) {
            report_(error.what());
        }
    }
}

// Commits the job, and answers everything in it. Returns how long the next commit may wait for the
// changes of these clients.
Clock::duration Recorder::Work::carryOut(const Job& job) {
    const Clock::time_point begin = Clock::now();
    bool isKept = false;
    bool isOutOfMemory = false;
    std::size_t changes = 0;
    try {
        const SnapshotPointer current = state()->snapshot;
        NextSnapshot next(current);
        for (const Wish* const wish : job.wishes) {
            if (wish->replacement != nullptr) {
                for (const auto& [id, address] : difference(*current, *wish->replacement)) {
                    static_cast<void>(address ? next.put(id, *address) : next.remove(id));
                }
            }
        }
        for (const std::shared_ptr<ChangeBatch>& batch : job.batches) {
            for (ChangeBatch::Item& item : batch->items) {
                if (!item.isDecided) {
                    item.outcome = apply(item.change, next);
                    ++changes;
                }
            }
        }
        // Everything that needs memory is made before the commit, which nobody can take back.
        EventPointer event =
            Event::of(next.edits(), *current, history_.epoch(), current->revision() + 1);
        const auto kept = std::make_shared<State>();
        const auto notKept = std::make_shared<State>();
        kept->snapshot = next.edits().empty() ? current : next.finish(current->revision() + 1);
        notKept->snapshot = kept->snapshot;
        notKept->isKept = false;
        {
            const system::MutexLock lock(mutex_);
            statistics_.since = begin;
        }
        isKept = keep(*kept->snapshot, next.edits(), !job.wishes.empty());
        if (!isKept) {
            assign(notKept->reason, reason_.c_str());
        }
        const system::MutexLock lock(mutex_);
        publish(isKept ? kept : notKept);
        if (kept->snapshot != current) {
            history_.append(kept->snapshot->revision(), std::move(event));
        }
        hasRecord_ = hasRecord_ || kept->snapshot != current || !job.wishes.empty();
        count(Clock::now() - begin, changes);
    } catch (const std::bad_alloc&) {
        isOutOfMemory = true;
        const system::MutexLock lock(mutex_);
        statistics_.since.reset();
    }
    if (published && !isOutOfMemory) {
        published();
    }
    const Clock::duration wait = queue_.committed(job, Clock::now() - begin);
    finish(job, isKept, isOutOfMemory);
    return wait;
}

void Recorder::Work::count(Clock::duration length, std::size_t changes) {
    statistics_.since.reset();
    ++statistics_.commits;
    statistics_.changes += changes;
    statistics_.mostChanges = std::max(statistics_.mostChanges, changes);
    statistics_.longest = std::max(statistics_.longest,
                                   std::chrono::duration_cast<std::chrono::microseconds>(length));
}

// Writes the edits that led to the snapshot, and what is known of the plug-in's file. Returns
// whether the record holds the snapshot afterwards. Tries a record that failed again when it is
// time.
bool Recorder::Work::keep(const Snapshot& snapshot, const Edits& edits, bool hasWish) {
    if (isKept_ && edits.empty() && !hasWish) {
        return true;
    }
    if (!isKept_ && Clock::now() < retryAt_) {
        return false;
    }
    try {
        if (isKept_ && record_ != nullptr) {
            try {
                // The other keys may be long, so the note is copied only if it is written.
                const FileNote note = hasWish ? fileNote() : FileNote();
                record_->commit(snapshot.revision(), edits, hasWish ? &note : nullptr);
                return true;
            } catch (const RecordError&) {
                // Nobody knows whether the edits are on the disk, so the record is read again.
            }
        }
        keepAll(snapshot);
        if (!std::exchange(isKept_, true)) {
            tell("the record can be written again, and holds every change");
            const system::MutexLock lock(mutex_);
            statistics_.notKeptSince.reset();
        }
        return true;
    } catch (const std::bad_alloc&) {
        cannotKeep("out of memory");
    } catch (const std::exception& error) {
        cannotKeep(error.what());
    }
    return false;
}

// Makes the record hold the snapshot, whatever it holds now.
void Recorder::Work::keepAll(const Snapshot& snapshot) {
    const Record::Contents contents = openRecord();
    const FileNote note = fileNote();
    record_->commit(snapshot.revision(),
                    difference(Snapshot(contents.revision, contents.services), snapshot), &note);
}

void Recorder::Work::cannotKeep(const char* reason) noexcept {
    assign(reason_, reason);
    if (std::exchange(isKept_, false)) {
        retryDelay_ = kFirstRetry;
        tell("changes are not kept: ", reason_);
        const system::MutexLock lock(mutex_);
        statistics_.notKeptSince = std::chrono::system_clock::now();
    } else {
        retryDelay_ = std::min(2 * retryDelay_, kLastRetry);
    }
    retryAt_ = Clock::now() + retryDelay_;
}

void Recorder::Work::tell(const char* what, const std::string& why) const noexcept {
    try {
        report_(what + why);
    } catch (const std::exception&) {
        // There is no memory for the line. Nobody relies on it.
        return;
    }
}

// Answers everything that the job carried out.
void Recorder::Work::finish(const Job& job, bool isKept, bool isOutOfMemory) noexcept {
    queue_.fulfilled(job, isKept, isOutOfMemory);
    for (const std::shared_ptr<ChangeBatch>& batch : job.batches) {
        for (ChangeBatch::Item& item : batch->items) {
            if (isOutOfMemory && !item.isDecided) {
                item.outcome = {QV_ERROR_NO_MEMORY, {}};
            } else if (!isKept && item.outcome.code == QV_OK) {
                item.outcome.code = QV_HOST_ERROR_NOT_KEPT;
                assign(item.outcome.bytes, reason_.c_str());
            }
        }
        batch->answered(answeredClients_);
    }
}

Recorder::Recorder(std::string path, Report report)
    : work_(std::make_unique<Work>(std::move(path), std::move(report))) {}

Recorder::~Recorder() {
    stop();
}

bool Recorder::hasRecord() const {
    return work_->hasRecord();
}

void Recorder::start() {
    work_->start();
}

void Recorder::stop() {
    work_->stop();
}

Recorder::StatePointer Recorder::state() const {
    return work_->state();
}

bool Recorder::isNewest(const State* state) const {
    return work_->isNewest(state);
}

const History& Recorder::history() const {
    return work_->history();
}

void Recorder::submit(std::shared_ptr<ChangeBatch> batch) {
    work_->submit(std::move(batch));
}

Recorder::StatePointer Recorder::replace(const std::vector<Service>& services) {
    return work_->replace(services);
}

FileNote Recorder::fileNote() const {
    return work_->fileNote();
}

bool Recorder::note(const FileNote& note) {
    return work_->note(note);
}

void Recorder::onPublished(std::function<void()> function) {
    work_->published = std::move(function);
}

Recorder::Statistics Recorder::statistics() const {
    return work_->statistics();
}

}  // namespace qv::host
