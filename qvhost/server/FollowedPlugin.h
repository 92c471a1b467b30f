// SPDX-License-Identifier: Apache-2.0

// Brings the plug-in and its file up with the directory. The follower decides when; this class
// knows how.
//
//     FollowedPlugin followed(plugin, file, recorder, initialize, report);
//     followed.start();                       // record or file: who counts?
//     ... the recorder publishes a snapshot ...
//     std::string problem = followed.update();
//     followed.finalize();
//
// The plug-in saves in place and in one write, and may restore the file from its backup when it
// starts. So the record holds a note that the file is being written, from before each save or start
// until the file was read back and holds the directory. What such a write leaves is never taken for
// an edit.
//
// There are two ways to bring the file up. The usual one sends the plug-in the difference, of which
// the last part is a registration, because only that makes the plug-in save. The other one
// finalises the plug-in, writes the file and initialises the plug-in again. It is for a file that
// is missing or damaged, which the plug-in would copy over its backup, for one that must become
// empty, for a plug-in that found no file, and for a save that has failed before.
//
// Only one thread may use an object. It must not be the recorder's.
#ifndef QVHOST_SERVER_FOLLOWED_PLUGIN_H
#define QVHOST_SERVER_FOLLOWED_PLUGIN_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "server/Door.h"
#include "server/Plugin.h"
#include "server/Recorder.h"
#include "server/StoredFile.h"

namespace qv::host {

class FollowedPlugin {
  public:
    // `initialize` initialises the plug-in. It may throw std::exception. `report` takes lines for
    // the journal.
    FollowedPlugin(Plugin& plugin, StoredFile file, Recorder& recorder,
                   std::function<void()> initialize, Recorder::Report report);

    const StoredFile& file() const { return file_; }

    // Finalises the plug-in, decides whether record or file counts, starts the plug-in and brings
    // plug-in and file up to the directory. The plug-in has the level of its configuration then.
    // Returns why the file does not hold the directory, or nothing if it does. Throws
    // std::exception if the plug-in cannot be started; update() tries that again.
    std::string start();

    // Brings plug-in and file up to the newest snapshot and returns the same. Starts the plug-in
    // again if that is necessary, and sets the level again.
    std::string update() noexcept;

    // Tells whether the file is as it was read last. Returns false if memory runs out.
    bool isAsRead() const noexcept;

    // Returns the revision of the directory that the file held when that was last so.
    int64_t fileRevision() const { return fileRevision_; }

    // Tells in one line what the last start did.
    const std::string& summary() const { return summary_; }

    // Has the plug-in execute the set-debug-level command. Remembers a level that was accepted.
    Outcome setLevel(const std::string& input);

    // Returns the level that was set since the last start. Without one, the level is that of the
    // plug-in's configuration.
    std::optional<int32_t> level() const;

    // Finalises the plug-in. Reports a failure.
    void finalize();

  private:
    enum class Choice { RecordOrFile, Record };

    std::string caught(bool mayRestart) noexcept;
    std::string follow(bool mayRestart);
    bool mustRestart(const Snapshot& target, bool& mustSave);
    void restart(Choice choice);
    void initialize(bool isReadable);
    bool isDamagedInOtherKeys(const FileView& file, Choice choice) const;
    void choose(const FileView& file, bool isMixture);
    void chooseFile(const FileView& file);
    void adopt(const std::vector<Service>& services, const std::string& reason);
    void noticeEdit(const FileView& file);
    std::string copied() const;
    bool write(const FileView& file, const Snapshot& target);
    bool noteWriting();
    void keepNote();
    bool send(const Snapshot& target, bool mustSave);
    std::string readBack(const Snapshot& target, bool isSaved);
    std::string whyNot(const FileView& file) const;
    void tell(const std::string& line);

    Plugin& plugin_;
    const StoredFile file_;
    Recorder& recorder_;
    const std::function<void()> initialize_;
    const Recorder::Report report_;

    bool isStarted_ = false;
    bool hasFile_ = false;    // the plug-in found its file when it was started, so it saves
    std::string loadedKeys_;  // that a save has to write beside the services; empty if unknown
    SnapshotPointer known_;   // what the plug-in holds; null if it has to be asked
    std::optional<std::string> level_;

    // What was found when the file was last read.
    uint64_t fingerprint_ = 0;
    bool isInStep_ = false;     // the file held the directory
    bool isStale_ = false;      // the file was whole, and the plug-in had not brought it up
    std::string writeProblem_;  // why the host could not write the file at the last start

    FileNote note_;
    bool isNoted_ = false;    // the record holds the note
    bool hasRecord_ = false;  // there is a record on the disk
    int64_t fileRevision_ = 0;
    std::string lines_;  // that were reported since the last call began
    std::string summary_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_FOLLOWED_PLUGIN_H
