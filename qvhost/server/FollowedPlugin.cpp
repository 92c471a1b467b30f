// SPDX-License-Identifier: Apache-2.0

#include "server/FollowedPlugin.h"

#include <QvFrame.h>
#include <QvText.h>
#include <fmt/format.h>

#include <exception>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "KevraCommonMsg.pb.h"
#include "server/ErrorText.h"
#include "server/PluginError.h"
#include "server/PluginRequests.h"

namespace qv::host {

namespace {

using State = FileView::State;

// Returns the numbers of services added, changed and withdrawn, as a text for people.
std::string numbersOf(const Edits& edits, const Snapshot& from) {
    std::size_t added = 0;
    std::size_t changed = 0;
    std::size_t withdrawn = 0;
    for (const auto& [id, address] : edits) {
        std::size_t& number = !address ? withdrawn : from.find(id) ? changed : added;
        ++number;
    }
    return fmt::format("{} added, {} changed, {} withdrawn", added, changed, withdrawn);
}

bool areSame(const std::vector<Service>& services, const Snapshot& snapshot) {
    if (services.size() != snapshot.size()) {
        return false;
    }
    auto service = services.begin();
    bool same = true;
    snapshot.forEach([&](const ServiceView& other) {
        same = same && service->id == other.id && service->address == other.address;
        ++service;
    });
    return same;
}

// Returns the end of a line that says where a copy is, or why there is none.
template <class MakeCopy>
std::string aside(const char* what, MakeCopy makeCopy) {
    try {
        return fmt::format("; {} is kept in {}", what, makeCopy());
    } catch (const std::system_error& error) {
        return fmt::format("; {} is lost: {}", what, error.what());
    }
}

}  // namespace

FollowedPlugin::FollowedPlugin(Plugin& plugin, StoredFile file, Recorder& recorder,
                               std::function<void()> initialize, Recorder::Report report)
    : plugin_(plugin),
      file_(std::move(file)),
      recorder_(recorder),
      initialize_(std::move(initialize)),
      report_(std::move(report)),
      note_(recorder.fileNote()),
      hasRecord_(recorder.hasRecord()),
      fileRevision_(note_.revision) {}

std::string FollowedPlugin::start() {
    lines_.clear();
    level_.reset();
    restart(Choice::RecordOrFile);
    std::string problem = caught(false);
    summary_ = lines_;
    return problem;
}

std::string FollowedPlugin::update() noexcept {
    lines_.clear();
    writeProblem_.clear();
    return caught(true);
}

// Returns an exception as a problem. The plug-in has to be asked again then.
std::string FollowedPlugin::caught(bool mayRestart) noexcept {
    try {
        try {
            return follow(mayRestart);
        } catch (const std::exception& error) {
            known_.reset();
            // A text that the plug-in threw may hold any bytes.
            return text::escaped(textOf(error));
        }
    } catch (const std::bad_alloc&) {
        return kOutOfMemory;
    }
}

std::string FollowedPlugin::follow(bool mayRestart) {
    const SnapshotPointer target = recorder_.state()->snapshot;
    if (isStarted_ && known_ == nullptr) {
        known_ = servicesOf(plugin_);
    }
    bool mustSave = false;
    if (mayRestart && mustRestart(*target, mustSave)) {
        restart(Choice::Record);
        return follow(false);
    }
    if (!mayRestart) {
        tell(fmt::format("the plug-in started with {} services; {}", known_->size(),
                         numbersOf(difference(*known_, *target), *known_)));
    }
    const bool isSaved = send(*target, mustSave);
    known_ = target;
    return readBack(*target, isSaved);
}

// Tells whether the plug-in must be restarted, and otherwise whether it must save even if no
// service has changed.
bool FollowedPlugin::mustRestart(const Snapshot& target, bool& mustSave) {
    if (!isStarted_) {
        return true;
    }
    if (!isInStep_ || !isAsRead()) {
        const FileView file = file_.look();
        noticeEdit(file);
        if (file.state != State::Whole) {
            return file.state != State::Unusable;
        }
        mustSave = isStale_ || !areSame(file.services, target);
    }
    if (!mustSave && difference(*known_, target).empty()) {
        return false;
    }
    if (hasFile_ && !noteWriting()) {
        // The host replaces the file in one step, and a new plug-in has no open descriptor.
        return true;
    }
    const bool pluginSaves = hasFile_ && !isStale_ && !target.empty();
    return !pluginSaves && file_.writeProblem().empty();
}

// Finalises the plug-in, puts the file right and initialises the plug-in.
void FollowedPlugin::restart(Choice choice) {
    finalize();
    FileView file = file_.look();
    const bool isMixture = isDamagedInOtherKeys(file, choice);
    if (choice == Choice::RecordOrFile) {
        choose(file, isMixture);
    } else {
        noticeEdit(file);
    }
    const SnapshotPointer target = recorder_.state()->snapshot;
    bool isWhole = file.state == State::Whole;
    writeProblem_.clear();
    // The record remembers the other keys from before the first write.
    if (isMixture) {
        file.otherKeys = note_.otherKeys;
    } else if (isWhole) {
        note_.otherKeys = file.otherKeys;
        isNoted_ = false;
    }
    // A start lets the plug-in bring up a file that lags. A restart has a reason to write.
    const bool isLeftToPlugin =
        file.state == State::Unusable ||
        (isWhole && !isMixture &&
         (areSame(file.services, *target) || (choice == Choice::RecordOrFile && !target->empty())));
    if (!isLeftToPlugin && write(file, *target)) {
        isWhole = true;
    }
    // The backup may have others.
    loadedKeys_ = isWhole ? note_.otherKeys : "";
    initialize(isWhole || file.state == State::Unusable);
    // The plug-in may have restored the file from its backup.
    hasFile_ = isWhole || file_.look().state == State::Whole;
    if (level_) {
        execute(plugin_, QV_COMMAND_SET_DEBUG_LEVEL, *level_);
    }
}

// Initialises the plug-in, which restores a file that it cannot read from the backup. `isReadable`
// tells whether the plug-in has no reason to do so. The backup must not pass for an edit.
void FollowedPlugin::initialize(bool isReadable) {
    const FileNote former = note_;
    if (!noteWriting() && !isReadable) {
        throw std::runtime_error(writeProblem_);
    }
    try {
        initialize_();
    } catch (const std::exception&) {
        // Somebody may edit the file before the next attempt.
        if (isAsRead()) {
            note_ = former;
            keepNote();
        }
        throw;
    }
    isStarted_ = true;
}

// Tells whether a whole file has other keys than the record remembers, because a write of the
// plug-in was cut short. The part that such a write takes out may lie in the value of a key.
bool FollowedPlugin::isDamagedInOtherKeys(const FileView& file, Choice choice) const {
    const bool isCutShort =
        choice == Choice::RecordOrFile ? recorder_.hasRecord() && note_.isBeingWritten : isStale_;
    return isCutShort && file.state == State::Whole && !note_.otherKeys.empty() &&
           file.otherKeys != note_.otherKeys;
}

// Decides whose list of services counts and makes the directory hold it. Keeps the other list
// aside.
void FollowedPlugin::choose(const FileView& file, bool isMixture) {
    fingerprint_ = file.fingerprint;
    if (!recorder_.hasRecord()) {
        chooseFile(file);
        return;
    }
    const SnapshotPointer directory = recorder_.state()->snapshot;
    const bool isDamaged = file.state == State::Damaged;
    const bool differs = isDamaged || isMixture ||
                         (file.state == State::Whole && !areSame(file.services, *directory));
    if (!differs || file.fingerprint == note_.fingerprint) {
        return;
    }
    if (truthOf(file, note_, directory->revision()) == Truth::File) {
        const std::string former =
            aside("the former list", [&] { return file_.putAside(*directory, note_.otherKeys); });
        adopt(file.services, fmt::format("{} was edited and counts{}", file_.path(), former));
        return;
    }
    const char* const reason = isDamaged              ? "is damaged"
                               : note_.isBeingWritten ? "was being written"
                               : !file.isDirectory    ? "is no directory of services"
                                                      : "was edited while the record was ahead";
    tell(fmt::format("{} {} and does not count{}", file_.path(), reason, copied()));
}

// Makes the directory hold the list of the file or of its backup, or nothing if neither can be
// read. Takes the other keys from the same place.
void FollowedPlugin::chooseFile(const FileView& file) {
    if (file.state == State::Whole) {
        adopt(file.services, "read " + file_.path());
        return;
    }
    if (file.state == State::Damaged) {
        tell(file_.problem(file) + copied());
    }
    StoredFile::Contents stored;
    try {
        stored = file_.read();
        // The host writes them to the file before the plug-in could restore it.
        note_.otherKeys = stored.otherKeys;
    } catch (const std::runtime_error&) {
        stored.source = file_.problem(file);
    }
    adopt(stored.services, stored.source);
}

void FollowedPlugin::adopt(const std::vector<Service>& services, const std::string& reason) {
    const SnapshotPointer former = recorder_.state()->snapshot;
    const SnapshotPointer now = recorder_.replace(services)->snapshot;
    tell(fmt::format("{}: {}", reason, numbersOf(difference(*former, *now), *former)));
}

// Keeps a copy of a file that somebody changed since it was last read.
void FollowedPlugin::noticeEdit(const FileView& file) {
    if (file.fingerprint != fingerprint_ && file.fingerprint != 0) {
        tell(fmt::format("{} was changed while the host ran{}", file_.path(), copied()));
    }
    fingerprint_ = file.fingerprint;
}

std::string FollowedPlugin::copied() const {
    return aside("its content", [&] { return file_.copyAside(); });
}

// Writes the file while the plug-in is finalised. Returns false and keeps the reason if that fails.
bool FollowedPlugin::write(const FileView& file, const Snapshot& target) {
    const bool isWhole = file.state == State::Whole;
    if (isWhole) {
        // A file that may only be read is not replaced.
        writeProblem_ = file_.writeProblem();
        if (!writeProblem_.empty()) {
            return false;
        }
    }
    // The file is replaced in one step, so the record needs no note.
    try {
        file_.write(target, isWhole ? file.otherKeys : note_.otherKeys);
    } catch (const std::system_error& error) {
        writeProblem_ = error.what();
        return false;
    }
    fingerprint_ = file_.fingerprint();
    tell(fmt::format("wrote {} with {} services", file_.path(), target.size()));
    return true;
}

// Has the record say that the file is being written. Returns false if the next start could take a
// file that a write left for an edited one. Without a record the file counts in any case.
bool FollowedPlugin::noteWriting() {
    if (!note_.isBeingWritten || !isNoted_) {
        note_.isBeingWritten = true;
        keepNote();
    }
    return isNoted_ || !hasRecord_;
}

void FollowedPlugin::keepNote() {
    isNoted_ = recorder_.note(note_);
    hasRecord_ = hasRecord_ || isNoted_;
}

// Sends the plug-in the difference to the snapshot. The plug-in saves if there is one, or if it
// must. Returns whether it did.
bool FollowedPlugin::send(const Snapshot& target, bool mustSave) {
    PluginRequests requests;
    {
        const Edits edits = difference(*known_, target);
        if (edits.empty() && !mustSave) {
            return false;
        }
        requests = requestsFor(edits, target);
    }
    const bool saves = hasFile_ && !requests.registration.empty();
    if (saves && !noteWriting() && file_.writeProblem().empty()) {
        // A save that is cut short would pass for an edit at the next start.
        throw std::runtime_error(
            !writeProblem_.empty() ? writeProblem_
                                   : "the record cannot be written, so the plug-in must not save");
    }
    if (!requests.withdrawal.empty()) {
        execute(plugin_, QV_COMMAND_UNREGISTER_SERVICES, requests.withdrawal);
    }
    if (!requests.registration.empty()) {
        execute(plugin_, QV_COMMAND_REGISTER_SERVICES, requests.registration);
    }
    return saves;
}

std::string FollowedPlugin::readBack(const Snapshot& target, bool isSaved) {
    FileView file = file_.look();
    fingerprint_ = file.fingerprint;
    // A save that was cut short may hold all services and have lost a part of another key. The host
    // then writes the file.
    const bool mayBeCut = isSaved || isStale_;
    const bool isComplete = !mayBeCut || loadedKeys_.empty() || file.otherKeys == loadedKeys_;
    isInStep_ = file.state == State::Whole && areSame(file.services, target) && isComplete;
    isStale_ = file.state == State::Whole && !isInStep_;
    if (!isInStep_) {
        return whyNot(file);
    }
    fileRevision_ = target.revision();
    if (isNoted_ && !note_.isBeingWritten && note_.revision == fileRevision_ &&
        note_.fingerprint == fingerprint_) {
        return "";
    }
    note_.revision = fileRevision_;
    note_.fingerprint = fingerprint_;
    note_.isBeingWritten = false;
    note_.otherKeys = std::move(file.otherKeys);
    keepNote();
    return "";
}

std::string FollowedPlugin::whyNot(const FileView& file) const {
    if (!writeProblem_.empty()) {
        return writeProblem_;
    }
    if (file.state != State::Whole) {
        return file_.problem(file);
    }
    const std::string problem = file_.writeProblem();
    return !problem.empty() ? problem : "the plug-in did not save the directory to " + file_.path();
}

bool FollowedPlugin::isAsRead() const noexcept {
    try {
        return file_.fingerprint() == fingerprint_;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

Outcome FollowedPlugin::setLevel(const std::string& input) {
    try {
        const Plugin::Answer answer = plugin_.call(QV_COMMAND_SET_DEBUG_LEVEL, input);
        if (answer.result() == QV_OK) {
            level_ = input;
        }
        return {static_cast<uint32_t>(answer.result()), std::string(answer.bytes())};
    } catch (const UnknownCommandError& error) {
        return {QV_HOST_ERROR_COMMAND, text::escaped(error.what())};
    } catch (const PluginError& error) {
        return {QV_HOST_ERROR_PLUGIN, text::escaped(error.what())};
    }
}

std::optional<int32_t> FollowedPlugin::level() const {
    qor::kevra::DebugOption option;
    if (!level_ || !option.ParsePartialFromString(*level_)) {
        return std::nullopt;
    }
    return option.debug_level();
}

void FollowedPlugin::finalize() {
    isStarted_ = false;
    known_.reset();
    try {
        plugin_.finalize();
    } catch (const std::exception& error) {
        tell(text::escaped(textOf(error)));
    }
}

void FollowedPlugin::tell(const std::string& line) {
    report_(line);
    lines_ += (lines_.empty() ? "" : "; ") + line;
}

}  // namespace qv::host
