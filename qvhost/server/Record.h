// SPDX-License-Identifier: Apache-2.0

// Keeps the directory on the disk: a SQLite database beside the plug-in's configuration file. What
// a commit has written outlives a killed process and a power failure.
//
//     Record record(recordPathOf("/var/lib/Vornak/LorxCore/namingService.conf.plist"));
//     Record::Contents contents = record.read();
//     record.commit(contents.revision + 1, edits, nullptr);
//
// The file has the mode 0600. No other process can open the database while this one has it. This
// process must not open the file by other means meanwhile, because closing it would end SQLite's
// locks. Only one thread at a time may use a record.
#ifndef QVHOST_SERVER_RECORD_H
#define QVHOST_SERVER_RECORD_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "server/Service.h"
#include "server/Snapshot.h"

namespace qv::host {

// Returns the path of the record beside the plug-in's configuration file.
inline std::string recordPathOf(const std::string& configurationFile) {
    return configurationFile + ".record";
}

// Tells a person in one line why the record cannot be read or written.
class RecordError : public std::runtime_error {
  public:
    enum class Kind {
        Damaged,  // the file is no database, or its content is damaged; SQLite says so
        Failed,   // anything else: no space, no permission, an error of the disk
    };

    RecordError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}

    Kind kind() const noexcept { return kind_; }

  private:
    Kind kind_;
};

// What the record knows of the plug-in's file. The next start compares the file with it.
struct FileNote {
    int64_t revision = 0;         // of the directory that the file held when it was last read back
    uint64_t fingerprint = 0;     // of the file's bytes then; see fingerprintOf() in StoredFile.h
    bool isBeingWritten = false;  // the plug-in may have begun to write since then
    std::string otherKeys;  // the file without its services, as a property list; empty if unknown
};

class Record {
  public:
    struct Contents {
        int64_t revision = 0;           // 0 if nothing has ever been committed
        uint64_t epoch = 0;             // of the last commit; 0 if there was none
        std::vector<Service> services;  // ascending by identifier
        FileNote file;
    };

    // Tells whether there is a file with anything in it.
    static bool hasContent(const std::string& path);

    // Renames the files of a damaged database, so that somebody can look at them. Returns the new
    // name. Throws RecordError and std::bad_alloc.
    static std::string setAside(const std::string& path);

    // Opens the database, or makes an empty one. Each commit writes `epoch`, a number of the
    // caller's. Throws RecordError and std::bad_alloc. Does not follow a symbolic link at the path.
    explicit Record(const std::string& path, uint64_t epoch = 0);

    // Closes the database, which moves everything into one file. See close().
    ~Record();

    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    // Returns everything. Throws RecordError and std::bad_alloc.
    Contents read();

    // Writes the changes, the revision, the epoch and, if it is not null, what is known of the
    // file, all or nothing. Returns when they are on the disk. Throws RecordError and
    // std::bad_alloc. Whether the changes are on the disk is unknown then. Close the record, open
    // another one, and commit what it lacks, even if it lacks nothing: only a commit that returns
    // has made sure of all earlier ones.
    void commit(int64_t revision, const Edits& edits, const FileNote* note);

    // Moves everything into the database file and removes the log beside it. Throws RecordError if
    // that fails, in which case the next record does it. Nothing else may be called afterwards.
    void close();

  private:
    class Database;

    std::unique_ptr<Database> database_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_RECORD_H
