// SPDX-License-Identifier: Apache-2.0

// Owns the directory of services and its record on the disk. One thread takes all changes that
// wait, of all clients, commits them to the record in one transaction, publishes the new snapshot
// and answers the changes. Then the thread takes the next changes of the clients, if they arrive
// soon.
//
//     Recorder recorder(recordPath, report);
//     recorder.start();
//     recorder.submit(batch);                   // any thread; the batch is answered later
//     Recorder::State state = *recorder.state();  // any thread, never waits
//
// A change that is answered with QV_OK is on the disk. If the record cannot be written, the host
// goes on: the change is made in the snapshot, and its answer is QV_HOST_ERROR_NOT_KEPT with the
// reason. The thread tries again at growing intervals and then commits everything that is missing.
//
// Readers never wait: state() gives them the newest snapshot, whatever is being committed. A thread
// that answers many requests has a DirectoryReader.
#ifndef QVHOST_SERVER_RECORDER_H
#define QVHOST_SERVER_RECORDER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "server/ChangeBatch.h"
#include "server/History.h"
#include "server/Record.h"
#include "server/Snapshot.h"

namespace qv::host {

class Recorder {
  public:
    // What a reader sees at one moment.
    struct State {
        SnapshotPointer snapshot;
        bool isKept = true;  // the record holds the snapshot
        std::string reason;  // why not
    };
    using StatePointer = std::shared_ptr<const State>;

    // Figures for the status of the host.
    struct Statistics {
        uint64_t commits = 0;
        uint64_t changes = 0;         // that were answered, in all commits
        std::size_t mostChanges = 0;  // of one commit
        std::chrono::microseconds longest{0};
        std::optional<std::chrono::steady_clock::time_point> since;  // of the commit under way
        std::optional<std::chrono::system_clock::time_point> notKeptSince;
    };

    using Report = std::function<void(const std::string&)>;

    // Opens the record and reads the directory. Sets a damaged record aside and begins a new one.
    // If there is no record and none can be made, begins with an empty directory that is not kept.
    // `report` takes lines for the journal, on any thread. Throws RecordError if there is a record
    // that cannot be opened: to go on without it would lose what it holds. Throws std::bad_alloc.
    Recorder(std::string path, Report report);
    ~Recorder();

    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Tells whether the directory is that of a record. Otherwise nobody knows yet what it should
    // hold, and the plug-in's file tells.
    bool hasRecord() const;

    // Starts the thread. Throws std::system_error.
    void start();

    // Commits what waits, ends the thread and closes the record. Call it when no thread submits
    // anything more.
    void stop();

    // Returns the newest published state, which is never null. Any thread may call this.
    StatePointer state() const;

    // Tells whether this is the newest published state. Any thread may call this.
    bool isNewest(const State* state) const;

    // Returns the events of the newest revisions. They never go beyond those of state().
    const History& history() const;

    // Has the changes made and answered. Any thread may call this.
    void submit(std::shared_ptr<ChangeBatch> batch);

    // Makes the directory hold exactly these services, ascending by identifier, as one commit.
    // Returns the state that holds them. Any other thread may call this, and waits. Throws
    // std::bad_alloc, and nothing is changed then.
    StatePointer replace(const std::vector<Service>& services);

    // Reads and writes what the record knows of the plug-in's file. note() returns false if the
    // record cannot be written; it keeps the note for the next commit that works. Any other thread
    // may call them; note() waits.
    FileNote fileNote() const;
    bool note(const FileNote& note);

    // Sets a function that the recorder's thread calls after it published a state. Call before
    // start(). The function must not throw.
    void onPublished(std::function<void()> function);

    Statistics statistics() const;

  private:
    class Work;

    std::unique_ptr<Work> work_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_RECORDER_H
