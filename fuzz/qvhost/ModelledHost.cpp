// SPDX-License-Identifier: Apache-2.0

#include "qvhost/ModelledHost.h"

#include <QvFrame.h>
#include <QvPlugin.h>
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "gen_lite/WireFormat.h"
#include "namingService.pb.h"
#include "qvhost/Possibilities.h"
#include "qvhost/ServiceFileLanguage.h"
#include "server/StoredFile.h"

namespace qv::fuzz {
namespace {

using RecordKind = RecordContent::Kind;

constexpr std::size_t kMostCopies = 5;

Tree noKeys() {
    Tree tree;
    tree.kind = Tree::Kind::kDictionary;
    return tree;
}

Services servicesOf(const host::Snapshot& snapshot) {
    Services services;
    snapshot.forEach(
        [&](const host::ServiceView& service) { services[service.id] = service.address; });
    return services;
}

std::string numbersBetween(const Services& from, const Services& to) {
    std::size_t added = 0;
    std::size_t changed = 0;
    std::size_t withdrawn = from.size();
    for (const auto& [id, address] : to) {
        const auto old = from.find(id);
        added += old == from.end() ? 1 : 0;
        withdrawn -= old == from.end() ? 0 : 1;
        changed += old != from.end() && old->second != address ? 1 : 0;
    }
    return fmt::format("{} added, {} changed, {} withdrawn", added, changed, withdrawn);
}

// Makes the request on the services. Returns the code of the answer if the services can be kept.
std::uint32_t makeOn(Services& services, const Request& request) {
    qor::kevra::ServiceInfoArray message;
    if (!message.ParseFromArray(request.bytes.data(), static_cast<int>(request.bytes.size()))) {
        return QV_ERROR_ARGUMENT;
    }
    Services next = services;
    for (const auto& service : message.services()) {
        if (!request.isRegistration) {
            next.erase(service.id());
        } else if (isAddress(service.address())) {
            next[service.id()] = service.address();
        } else {
            return QV_HOST_ERROR_REFUSED;
        }
    }
    services = std::move(next);
    return QV_OK;
}

}  // namespace

void ModelledHost::limit(std::optional<std::size_t> longestFile) {
    limit_.reset();
    if (longestFile) {
        limit_.emplace(*longestFile);
        hadLimit_ = true;
    }
}

void ModelledHost::fileIsEdited() {
    known_.isEdited = true;
    known_.mustStartWith.reset();
    isNewEdit_ = true;
    const auto file = HostFiles::file();
    const auto backup = HostFiles::backup();
    for (const auto& bytes : {file, backup}) {
        const FileContent content = contentIn(bytes.value_or(""));
        canGoOn_ = canGoOn_ && (!content.isWhole || content.canBeWritten);
    }
    const FileContent content = contentIn(file.value_or(""));
    known_.isTorn = false;
    if (content.isWhole) {
        add(known_.edits, content.services);
    }
    if (isRunning() && content.isWhole) {
        widen(known_.keys, {content.otherKeys});
    }
}

void ModelledHost::recordIsDamaged() {
    known_.mayHold.clear();
    known_.mustStartWith.reset();
    known_.progress = Progress::Unsure;
    // The next record does not know the keys until the file was read back.
    widen(known_.keys, {noKeys()});
}

// Says by the rules of a start what the directory has to be.
ModelledHost::Expectation ModelledHost::expectationOf(const Image& image,
                                                      const RecordContent& record) const {
    Expectation expected;
    const std::optional<std::string> file = image.file();
    const FileContent content = contentIn(file.value_or(""));
    if (record.kind != RecordKind::Usable) {
        const FileContent backup = contentIn(image.backup().value_or(""));
        const bool hasBackup = !content.isWhole && !image.isFileADirectory() && backup.isWhole;
        expected.services = hasBackup ? backup.services : content.services;
        if (content.isWhole || hasBackup) {
            expected.keys = {hasBackup ? backup.otherKeys : content.otherKeys};
        } else if (isDiskGood()) {
            // A record that holds no directory yet may know the other keys.
            expected.keys = {noKeys()};
            widen(expected.keys, known_.keys);
        }
        expected.isLost = file && !content.isWhole;
        return expected;
    }
    const host::FileNote& note = record.contents.file;
    const bool isChanged = file && host::fingerprintOf(*file) != note.fingerprint;
    const bool counts = content.isDirectory && isChanged && !note.isBeingWritten &&
                        note.revision >= record.contents.revision;
    const bool differs = !content.isWhole || content.services != record.services;
    expected.services = counts ? content.services : record.services;
    expected.isEdit = counts && differs;
    expected.isLost = !counts && isChanged && differs;
    // A write that was cut short may have damaged a key, so the record's count then.
    if (!content.isWhole || known_.isTorn) {
        // A host that could not write the record has not told it the keys of the file.
        expected.keys = isDiskGood() ? known_.keys : std::vector<Tree>();
        return expected;
    }
    expected.keys = {content.otherKeys};
    if (note.isBeingWritten) {
        widen(expected.keys, isDiskGood() ? known_.keys : std::vector<Tree>());
    }
    return expected;
}

// Checks what follows from the steps before the start, whatever the record says.
void ModelledHost::checkExpectation(const Expectation& expected, const Image& image,
                                    const RecordContent& record) const {
    if (record.kind == RecordKind::Usable || record.kind == RecordKind::None) {
        check(allows(known_.mayHold, record.services), "the record lacks what was kept");
    }
    // Without a record the backup may count instead.
    const bool mayBeEdit = record.kind == RecordKind::Usable
                               ? holds(known_.edits, expected.services)
                               : known_.isEdited;
    check(mayBeEdit || allows(known_.mayHold, expected.services),
          "a start takes a list that never was");
    check(!known_.mustStartWith || expected.services == *known_.mustStartWith,
          "a start that was cut short has another outcome");
    if (!isDiskGood() || !known_.isEdited || record.kind != RecordKind::Usable) {
        return;
    }
    const FileContent content = contentIn(image.file().value_or(""));
    if (known_.progress == Progress::InStep && content.isDirectory &&
        image.file() != known_.lastRead) {
        check(expected.services == content.services, "an edit does not count");
    }
    if (known_.progress == Progress::Behind) {
        check(expected.services == record.services, "an edit counts and takes changes back");
    }
}

void ModelledHost::start(bool hasThread) {
    const Image before = HostFiles::image();
    const RecordContent record = HostFiles::recordIn(before);
    const Expectation expected = expectationOf(before, record);
    checkExpectation(expected, before, record);
    startsWith_ = expected.services;
    add(made_, expected.services);
    forgetLines();
    std::string problem;
    try {
        const auto report = [this](const std::string& line) {
            const std::lock_guard<std::mutex> lock(mutex_);
            lines_.push_back(line);
        };
        host_ = std::make_unique<RunningHost>(HostFiles::path(), hasThread, report,
                                              [this] { addImage(); });
        problem = host_->start();
    } catch (const std::exception&) {
        check(limit_ || record.kind == RecordKind::Unopenable, "a host does not start");
        check(HostFiles::file() == before.file(), "a start that fails changes the file");
        host_.reset();
        return;
    }
    check(record.kind != RecordKind::Unopenable, "a host starts without its record");
    checkStart(expected, before, record);
    started(expected, problem);
    checkBackup(before.backup());
}

void ModelledHost::reload() {
    const Image before = stableImage();
    RecordContent record;
    const auto state = host_->recorder().state();
    if (host_->recorder().hasRecord()) {
        record.kind = RecordKind::Usable;
        record.services = directory_;
        record.contents.revision = state->snapshot->revision();
        record.contents.file = host_->recorder().fileNote();
    }
    const Expectation expected = expectationOf(before, record);
    checkExpectation(expected, before, record);
    startsWith_ = expected.services;
    add(made_, expected.services);
    forgetLines();
    const std::string problem = host_->reload();
    checkStart(expected, before, record);
    started(expected, problem);
    checkBackup(before.backup());
}

// Checks whose list a start took, and what it told.
void ModelledHost::checkStart(const Expectation& expected, const Image& before,
                              const RecordContent& record) {
    check(servicesOf(*host_->recorder().state()->snapshot) == expected.services,
          "a start has other services");
    check(isDiskGood() ? host_->recorder().state()->isKept : true, "a start is not kept");
    check(record.kind != RecordKind::Damaged || hasLine(".damaged-"),
          "a damaged record is set aside silently");
    if (!isDiskGood()) {
        return;
    }
    if (expected.isLost) {
        check(hasLine(HostFiles::path()), "a file does not count, and nobody is told");
        checkCopies(*before.file());
    }
    if (expected.isEdit) {
        check(hasLine(numbersBetween(record.services, expected.services)),
              "an edit is adopted silently");
        bool isKeptAside = false;
        for (const auto& [name, bytes] : HostFiles::image().files) {
            isKeptAside = isKeptAside || (name.find(".aside-") != std::string::npos &&
                                          contentIn(bytes).services == record.services);
        }
        check(isKeptAside, "the list that an edit replaces is lost");
    }
}

void ModelledHost::started(const Expectation& expected, const std::string& problem) {
    directory_ = expected.services;
    if (host_->recorder().state()->isKept) {
        known_.mayHold = {directory_};
    } else if (!known_.mayHold.empty()) {
        add(known_.mayHold, directory_);
    }
    known_.mustStartWith.reset();
    known_.keys = expected.keys;
    pluginKeys_.clear();
    isNewEdit_ = false;
    subscribers_.comeBack(host_->recorder());
    followed(problem);
}

void ModelledHost::stop() {
    const std::int64_t revision = host_->recorder().state()->snapshot->revision();
    if (!host_->hasThread() &&
        (known_.progress == Progress::Unsure || host_->fileRevision() != revision)) {
        turn();
    }
    const std::optional<std::string> backup = HostFiles::backup();
    host_->stop();
    checkBackup(backup);
    if (!limit_) {
        check(!HostFiles::image().hasLog(), "a host that ends leaves a log");
        known_.mayHold = {directory_};
    }
    host_.reset();
}

void ModelledHost::turn() {
    finishTurn(beforeTurn());
}

ModelledHost::Found ModelledHost::beforeTurn() {
    Found found{HostFiles::file(), HostFiles::backup(), false};
    found.isNewEdit = isNewEdit_ && found.file && found.file != lastSeen_;
    forgetLines();
    return found;
}

void ModelledHost::finishTurn(const Found& found) {
    const std::string problem = host_->update();
    if (found.isNewEdit && isDiskGood()) {
        check(hasLine("was changed while the host ran"), "an edit is overwritten silently");
        checkCopies(*found.file);
    }
    isNewEdit_ = false;
    if (!isDiskGood() && !contentIn(found.file.value_or("")).isWhole) {
        // The host cannot write the file, so the plug-in restores the backup with its keys.
        known_.keys.clear();
    }
    followed(problem);
    checkBackup(found.backup);
}

// Checks what a turn or a start left.
void ModelledHost::followed(std::string problem) {
    if (!problem.empty() && hadLimit_ && !limit_) {
        // The recorder waits before it tries again, and the host then writes the file itself.
        problem = host_->update();
    }
    lastSeen_ = HostFiles::file();
    if (problem.empty()) {
        checkInStep();
        return;
    }
    known_.progress = Progress::Unsure;
    check(limit_ || HostFiles::isFileADirectory(), "the file does not follow");
    check(problem.find('\n') == std::string::npos, "a problem has several lines");
}

void ModelledHost::checkInStep() {
    const std::optional<std::string> file = HostFiles::file();
    const FileContent content = contentIn(file.value_or(""));
    const host::FileNote note = host_->recorder().fileNote();
    const std::int64_t revision = host_->recorder().state()->snapshot->revision();
    check(content.isWhole, "the file is not whole");
    check(content.services == directory_, "the file has other services");
    check(allows(known_.keys, content.otherKeys), "the file has other keys");
    check(host_->fileRevision() == revision && note.revision == revision &&
              note.fingerprint == host::fingerprintOf(*file) && !note.isBeingWritten,
          "the record does not know the file");
    std::string listing;
    for (const auto& [id, address] : directory_) {
        listing += encodedService(id, address);
    }
    check(RunningHost::listing() == listing, "the plug-in has other services");

    known_.progress = Progress::InStep;
    known_.isEdited = false;
    known_.edits.clear();
    known_.isTorn = false;
    known_.lastRead = file;
    add(pluginKeys_, content.otherKeys);
    known_.keys = pluginKeys_;
    hadLimit_ = limit_ || !host_->recorder().state()->isKept;
}

void ModelledHost::make(const std::vector<Request>& requests) {
    std::vector<std::uint32_t> codes;
    Services next = directory_;
    for (const Request& request : requests) {
        codes.push_back(makeOn(next, request));
        add(made_, next);
        if (!known_.mayHold.empty()) {
            add(known_.mayHold, next);
        }
    }
    const std::int64_t revision = host_->recorder().state()->snapshot->revision();
    const Found found = beforeTurn();
    const std::vector<host::Outcome> answers = host_->answersTo(requests);
    bool isKept = false;
    for (std::size_t i = 0; i < codes.size(); ++i) {
        const bool isMade = codes[i] == QV_OK;
        const bool isNotKept = isMade && answers[i].code == QV_HOST_ERROR_NOT_KEPT;
        check(answers[i].code == codes[i] || isNotKept, "an answer has another code");
        check(!isNotKept || !isDiskGood(), "a change is not kept");
        check((answers[i].code >= QV_HOST_ERROR_REFUSED) == !answers[i].bytes.empty(),
              "an answer has another text");
        isKept = isKept || answers[i].code == QV_OK;
    }
    const auto state = host_->recorder().state();
    check(servicesOf(*state->snapshot) == next, "the directory has other services");
    const bool isChanged = next != directory_;
    check(state->snapshot->revision() == revision + (isChanged ? 1 : 0),
          "the directory has another revision");
    check(!isKept || state->isKept, "a change is acknowledged and not kept");
    directory_ = std::move(next);
    subscribers_.comeBack(host_->recorder());
    if (state->isKept) {
        known_.mayHold = {directory_};
    }
    if (isChanged && known_.progress == Progress::InStep) {
        known_.progress = Progress::Behind;
    }
    if (host_->hasThread()) {
        finishTurn(found);
    }
}

void ModelledHost::checkBackup(const std::optional<std::string>& before) const {
    const std::optional<std::string> now = HostFiles::backup();
    check(now == before || !isDiskGood() || contentIn(now.value_or("")).isWhole,
          "a damaged file replaces the backup");
}

void ModelledHost::checkCopies(const std::string& bytes) {
    std::size_t copies = 0;
    bool isThere = false;
    for (const auto& [name, content] : stableImage().files) {
        const bool isCopy = name.find(".aside-") != std::string::npos;
        copies += isCopy ? 1 : 0;
        isThere = isThere || (isCopy && content == bytes);
    }
    check(isThere, "there is no copy of a file that does not count");
    check(copies <= kMostCopies, "there are too many copies");
}

void ModelledHost::forgetLines() {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
}

bool ModelledHost::hasLine(const std::string& part) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(lines_.begin(), lines_.end(), [&](const std::string& line) {
        return line.find(part) != std::string::npos;
    });
}

}  // namespace qv::fuzz
