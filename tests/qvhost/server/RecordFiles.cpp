// SPDX-License-Identifier: Apache-2.0

#include "qvhost/server/RecordFiles.h"

#include <algorithm>
#include <exception>
#include <map>
#include <optional>

#include "server/Snapshot.h"

namespace qv::host {
namespace {

// Among as many successive commits, one withdraws each of the services, and one writes a note.
constexpr int64_t kServices = 64;

// Each commit registers some services and withdraws one. The addresses have lengths from a few
// bytes to several blocks of the database.
Edits editsOf(int64_t revision) {
    Edits edits;
    edits[static_cast<int32_t>(revision * 11 % kServices)] = std::nullopt;
    for (int64_t i = 0; i < 3; ++i) {
        const auto length = static_cast<std::size_t>(revision % 7 == 0 ? 5000 : revision % 5 * 300);
        edits[static_cast<int32_t>((revision * 3 + i) % kServices)] =
            std::to_string(revision) + std::string(length, 'a');
    }
    return edits;
}

// Every third commit writes a note. The other keys change seldom.
std::optional<FileNote> noteOf(int64_t revision) {
    if (revision % 3 != 0) {
        return std::nullopt;
    }
    FileNote note;
    note.revision = revision - 1;
    note.fingerprint = ~static_cast<uint64_t>(revision);
    note.isBeingWritten = revision % 2 == 0;
    note.otherKeys = std::string(9000, static_cast<char>('a' + revision / 30 % 26));
    return note;
}

}  // namespace

void commitRevision(Record& record, int64_t revision) {
    const std::optional<FileNote> note = noteOf(revision);
    record.commit(revision, editsOf(revision), note ? &*note : nullptr);
}

void commitRevisions(Record& record, int64_t first, int64_t last) {
    for (int64_t revision = first; revision <= last; ++revision) {
        commitRevision(record, revision);
    }
}

std::string differenceFrom(const Record::Contents& contents) {
    std::map<int32_t, std::string> services;
    FileNote file;
    const int64_t first = std::max<int64_t>(1, contents.revision - kServices + 1);
    for (int64_t revision = first; revision <= contents.revision; ++revision) {
        for (const auto& [id, address] : editsOf(revision)) {
            if (address) {
                services[id] = *address;
            } else {
                services.erase(id);
            }
        }
        file = noteOf(revision).value_or(file);
    }
    std::string difference;
    for (const Service& service : contents.services) {
        const auto expected = services.find(service.id);
        if (expected == services.end() || expected->second != service.address) {
            difference += "service " + std::to_string(service.id) + " is wrong\n";
        }
    }
    if (contents.services.size() != services.size()) {
        difference += std::to_string(contents.services.size()) + " services are there, not " +
                      std::to_string(services.size()) + "\n";
    }
    if (contents.file.revision != file.revision || contents.file.fingerprint != file.fingerprint ||
        contents.file.isBeingWritten != file.isBeingWritten ||
        contents.file.otherKeys != file.otherKeys) {
        difference += "the note is wrong\n";
    }
    return difference;
}

std::string problemIn(const std::string& path, int64_t least, int64_t most) {
    try {
        const Record::Contents contents = Record(path).read();
        if (contents.revision < least || contents.revision > most) {
            return "the revision is " + std::to_string(contents.revision) + ", not from " +
                   std::to_string(least) + " to " + std::to_string(most);
        }
        return differenceFrom(contents);
    } catch (const std::exception& error) {
        return error.what();
    }
}

}  // namespace qv::host
