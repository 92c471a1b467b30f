// SPDX-License-Identifier: Apache-2.0

// Reads and writes the plug-in's configuration file beside the plug-in, by the rules of the
// plug-in. The plug-in keeps the directory in the file, copies the old file to a backup with each
// save, and tells nobody whether a save worked.
#ifndef QVHOST_SERVER_STORED_FILE_H
#define QVHOST_SERVER_STORED_FILE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "server/Record.h"
#include "server/Service.h"
#include "server/Snapshot.h"

namespace qv::host {

// Returns a number that differs, in all likelihood, for different bytes. It is the same on every
// machine and in every version of the host, because records keep it.
uint64_t fingerprintOf(std::string_view bytes);

// What was found at the path of the file.
struct FileView {
    enum class State {
        Whole,  // a property list with a dictionary as its root
        Missing,
        Damaged,   // a regular file, but no such property list; the plug-in turns to its backup
        Unusable,  // may not be read, or is no regular file; the plug-in does without it
    };

    State state = State::Unusable;
    std::string problem;       // completes "FILE ..."; empty if the file is whole
    uint64_t fingerprint = 0;  // 0 if there is none
    // The following are empty unless the file is whole.
    bool isDirectory = false;       // lists services, each with an identifier and an address
    std::vector<Service> services;  // as the plug-in reads them, ascending by identifier
    std::string otherKeys;          // the file without "Address", as a property list
};

// Whose list of services counts when the plug-in starts.
enum class Truth { Record, File };

// Decides that the file counts if somebody edited it: it is whole, it is a directory, it is not
// what it was when the record last knew it, no write was under way, and the record was not ahead
// of it. `note` is what the record knows of the file, `revision` the record's own.
Truth truthOf(const FileView& file, const FileNote& note, int64_t revision);

class StoredFile {
  public:
    struct Contents {
        std::vector<Service> services;  // ascending by identifier
        std::string otherKeys;          // the file without "Address", as a property list

        // Names the file that was read. If that is the backup, tells why.
        std::string source;
    };

    // An empty path stands for one that is too long for the plug-in. Nothing can be read or written
    // then.
    explicit StoredFile(std::string path) : path_(std::move(path)) {}

    const std::string& path() const { return path_; }

    // Reads the file and changes nothing. Never waits, whatever is at the path. Throws
    // std::bad_alloc.
    FileView look() const;

    // Returns the fingerprint of the file's bytes, or 0 if it cannot be read. Throws
    // std::bad_alloc.
    uint64_t fingerprint() const;

    // Writes the services and the other keys to a new file, flushes it and puts it in the place of
    // the old file. Keeps mode and owner of the old file; a new one gets 0600. The file is the old
    // or the new one, also after a power failure. Throws std::system_error and std::bad_alloc. Call
    // it only while the plug-in is not initialised.
    void write(const Snapshot& services, const std::string& otherKeys) const;

    // Copies the file to FILE.aside-N and returns this path. N counts from 1, and the five highest
    // numbers are kept. Throws std::system_error and std::bad_alloc.
    std::string copyAside() const;

    // Does the same with a list that no file holds.
    std::string putAside(const Snapshot& services, const std::string& otherKeys) const;

    // Makes the file, which holds no services, the directories it lacks, and the directory of the
    // backup with the mode 0700. The plug-in would make that one with 0600, which only root can
    // use. Throws std::runtime_error and makes nothing if anything stands in the place of the file,
    // if there is a backup or a record, and if the file cannot be made.
    void make() const;

    // Returns the services that a host without a record would start with: those of the file, or of
    // its backup if the file is missing or damaged. Changes nothing on the disk. Throws
    // std::runtime_error, with a line for a person, if neither can be read.
    Contents read() const;

    // Returns a text for people that says why the view is not whole.
    std::string problem(const FileView& view) const;

    // Returns why an existing file cannot be written, or nothing if it can.
    std::string writeProblem() const;

  private:
    std::string backup() const;
    std::string putAside(std::string_view content) const;

    std::string path_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_STORED_FILE_H
