// SPDX-License-Identifier: Apache-2.0

// Runs the core of the resident host, and repeats what it should do on a model. Aborts with a
// message if the host does something else.
//
// The model knows what the host acknowledged as kept, what it made but did not keep, what the file
// should hold, and whose list of services has to count at a start. A host can be killed at every
// commit of its record, and in the middle of each write of the plug-in.
#ifndef QV_FUZZ_MODELLED_HOST_H
#define QV_FUZZ_MODELLED_HOST_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "qvhost/HostFiles.h"
#include "qvhost/ModelledSubscribers.h"
#include "qvhost/RunningHost.h"
#include "support/LongestFile.h"

namespace qv::fuzz {

class ModelledHost {
  public:
    bool isRunning() const { return host_ != nullptr; }

    void start(bool hasThread);
    // Lets the file catch up and ends the host.
    void stop();
    void reload();
    // Brings the file up.
    void turn();
    void make(const std::vector<Request>& requests);

    // Kills the host. It leaves its files as they are now.
    void crash();

    // Kills the host in the middle of what `action` does. `moment` chooses a commit, before or
    // after. `tear` chooses how far the plug-in's write has come.
    template <class Action>
    void crashDuring(Action action, unsigned moment, unsigned tear) {
        beginImages();
        action();
        crashAt(moment, tear);
    }

    // Limits the length of files, as a full disk does, or ends that.
    void limit(std::optional<std::size_t> longestFile);

    // Tell that somebody changed the plug-in's file or its backup, or the record.
    void fileIsEdited();
    void recordIsDamaged();

    // Returns whether a document can express what the files hold. The model ends where it cannot.
    bool canGoOn() const { return canGoOn_; }

  private:
    // How the file relates to the record.
    enum class Progress {
        InStep,  // the file was read back and held the directory of the record
        Behind,  // the record has changed since
        Unsure,
    };

    struct Knowledge {
        // What the record may hold: what was kept last, and what was made since. An empty list
        // allows everything.
        std::vector<Services> mayHold;
        Progress progress = Progress::Unsure;
        std::vector<Services> edits;  // that somebody wrote to the file since
        bool isEdited = false;        // somebody changed the file since the host read it last
        bool isTorn = false;          // the file is a mixture that a write left
        std::optional<std::string> lastRead;  // the file when it was in step
        std::vector<Tree> keys;  // that the file may have besides; an empty list allows all
        std::optional<Services> mustStartWith;  // if nobody edits the file
    };

    // Whose list counts at a start.
    struct Expectation {
        Services services;
        bool isEdit = false;     // the file's list replaces the record's
        bool isLost = false;     // the file's list does not count, so the host copies the file
        std::vector<Tree> keys;  // that the file may have then
    };

    // What a turn finds.
    struct Found {
        std::optional<std::string> file;
        std::optional<std::string> backup;
        bool isNewEdit = false;
    };

    Image stableImage();
    void beginImages();
    void addImage();
    void crashAt(unsigned moment, unsigned tear);
    bool tearFile(Image& image, const Image& next, unsigned tear) const;

    Expectation expectationOf(const Image& image, const RecordContent& record) const;
    void checkExpectation(const Expectation& expected, const Image& image,
                          const RecordContent& record) const;
    void checkStart(const Expectation& expected, const Image& before, const RecordContent& record);
    void started(const Expectation& expected, const std::string& problem);
    Found beforeTurn();
    void finishTurn(const Found& found);
    void followed(std::string problem);
    void checkInStep();
    void checkBackup(const std::optional<std::string>& before) const;
    void checkCopies(const std::string& bytes);
    bool isDiskGood() const { return !limit_ && !hadLimit_; }
    void forgetLines();
    bool hasLine(const std::string& part);

    HostFiles files_;
    Services directory_;
    ModelledSubscribers subscribers_;
    Knowledge known_;
    std::vector<Tree> pluginKeys_;  // the other keys that the plug-in loaded are one of these
    std::optional<std::string> lastSeen_;  // the file when the host read it last
    bool isNewEdit_ = false;               // somebody changed the file since then
    std::optional<tests::LongestFile> limit_;
    bool hadLimit_ = false;  // files could not be written at some time since all was well
    bool canGoOn_ = true;

    // While the host is killed during an action.
    Knowledge knownBefore_;
    std::vector<Services> made_;          // by the action
    std::optional<Services> startsWith_;  // the start that is the action

    std::mutex mutex_;
    std::vector<std::string> lines_;
    bool isArmed_ = false;
    std::vector<Image> images_;

    // Its threads use the members above.
    std::unique_ptr<RunningHost> host_;
};

}  // namespace qv::fuzz

#endif  // QV_FUZZ_MODELLED_HOST_H
