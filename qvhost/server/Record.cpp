// SPDX-License-Identifier: Apache-2.0

#include "server/Record.h"

#include <QvSystem/Descriptor.h>
#include <QvSystem/Directories.h>
#include <QvSystem/FileIdentity.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <system_error>
#include <utility>

#include "server/SqliteDatabase.h"

namespace qv::host {

namespace {

using Kind = RecordError::Kind;

// The database carries these two numbers, so that a host refuses what it does not understand.
constexpr int64_t kApplication = 0x71767263;
constexpr int64_t kFormat = 1;

// Each service has the revision of the commit that registered it. So a commit that registers
// something changes no other row, and writes one page if it changes one service. The revision of
// the directory is the greatest one of all rows. The other keys may be long. So they have a table
// of their own, while each note changes the row of the state.
constexpr char kSchema[] =
    "BEGIN IMMEDIATE;"
    "CREATE TABLE services(id INTEGER PRIMARY KEY, revision INTEGER NOT NULL,"
    " address BLOB NOT NULL);"
    "CREATE TABLE state(id INTEGER PRIMARY KEY CHECK (id = 1), revision INTEGER NOT NULL,"
    " fileRevision INTEGER NOT NULL, fingerprint INTEGER NOT NULL,"
    " isBeingWritten INTEGER NOT NULL, epoch INTEGER NOT NULL);"
    "CREATE TABLE otherKeys(id INTEGER PRIMARY KEY CHECK (id = 1), bytes BLOB NOT NULL);"
    "INSERT INTO state VALUES (1, 0, 0, 0, 0, 0);"
    "INSERT INTO otherKeys VALUES (1, x'');"
    "PRAGMA application_id={};"
    "PRAGMA user_version={};"
    "COMMIT;";

// Makes the file if there is none, and gives it the mode, whatever the umask is. Returns its path
// without links in the directory, because SQLite refuses links everywhere. Opens no file that is
// there, because closing it would end the locks that another record of this process holds.
std::string madeFile(const std::string& path) {
    constexpr mode_t kMode = 0600;
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const auto fail = [&path](const char* attempt, const std::string& reason) {
        throw RecordError(Kind::Failed,
                          fmt::format("cannot {} the record {}: {}", attempt, path, reason));
    };
    const auto lastError = [] { return std::generic_category().message(errno); };
    const std::string directory = system::directoryOf(path);
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(directory.c_str(), nullptr),
                                                           &std::free);
    if (!real) {
        fail("open", "the directory: " + lastError());
    }
    std::string file = std::string(real.get()) + '/' + path.substr(path.rfind('/') + 1);
    const system::Descriptor made(::open(file.c_str(), kFlags, kMode));
    if (!made && errno != EEXIST) {
        fail("make", lastError());
    }
    struct stat status = {};
    if (::lstat(file.c_str(), &status) != 0) {
        fail("open", lastError());
    }
    if (!S_ISREG(status.st_mode)) {
        fail("open", "it is no regular file");
    }
    if ((status.st_mode & 07777U) != kMode && ::chmod(file.c_str(), kMode) != 0) {
        fail("set the mode of", lastError());
    }
    return file;
}

}  // namespace

class Record::Database {
  public:
    Database(const std::string& path, uint64_t epoch);

    Contents read();
    void commit(int64_t revision, const Edits& edits, const FileNote* note);
    void close() const { database_.emptyLog(); }

  private:
    // Recognises a file that somebody removes or replaces while it is open.
    struct FilePlace {
        std::string path;
        system::FileIdentity file;
    };

    void checkFiles() const;
    void change(int64_t revision, const Edits& edits, const FileNote* note) const;
    bool changeServices(int64_t revision, const Edits& edits) const;
    void changeState(int64_t revision, const FileNote* note) const;

    SqliteDatabase database_;
    const int64_t epoch_;
    bool hasWrittenEpoch_ = false;
    SqliteStatement begin_;
    SqliteStatement end_;
    SqliteStatement put_;
    SqliteStatement remove_;
    SqliteStatement setRevision_;
    SqliteStatement setNote_;
    SqliteStatement setOtherKeys_;
    FilePlace file_{database_.path(), {}};
    FilePlace log_{database_.path() + "-wal", {}};
    bool mustMoveLog_ = false;
};

namespace {

// Makes the tables in a new database. Refuses, and leaves as it is, what this host does not know.
void prepareTables(const SqliteDatabase& database) {
    const int64_t application = database.number("PRAGMA application_id");
    const int64_t format = database.number("PRAGMA user_version");
    const bool isNew = application == 0 && format == 0 &&
                       database.number("SELECT count(*) FROM sqlite_master") == 0;
    if (!isNew && application != kApplication) {
        database.fail(Kind::Failed, "open", "it is a database of another program");
    }
    if (format > kFormat) {
        database.fail(
            Kind::Failed, "open",
            fmt::format("a newer qvhost wrote it, in format {}, and this one knows only format {}",
                        format, kFormat));
    }
    if (!isNew && format != kFormat) {
        database.failAsDamaged("it does not name its format");
    }
    database.useLog();
    if (isNew) {
        database.execute("make", fmt::format(kSchema, kApplication, kFormat));
    }
}

}  // namespace

Record::Database::Database(const std::string& path, uint64_t epoch)
    : database_(madeFile(path)), epoch_(static_cast<int64_t>(epoch)) {
    prepareTables(database_);
    const auto prepare = [this](SqliteStatement& statement, const char* sql) {
        statement = database_.prepare("open", sql);
    };
    prepare(begin_, "BEGIN IMMEDIATE");
    prepare(end_, "COMMIT");
    prepare(put_, "REPLACE INTO services(id, revision, address) VALUES (?1, ?2, ?3)");
    prepare(remove_, "DELETE FROM services WHERE id = ?1");
    prepare(setRevision_, "UPDATE state SET revision = ?1, epoch = ?2");
    prepare(setNote_,
            "UPDATE state SET revision = ?1, epoch = ?2, fileRevision = ?3, fingerprint = ?4,"
            " isBeingWritten = ?5");
    // SQLite writes only the blocks of the row that differ.
    prepare(setOtherKeys_, "UPDATE otherKeys SET bytes = ?1");
    // The log may hold a commit that the last host could not flush. Then only the system's memory
    // has the commit, and a power failure would take all later ones with it. Moving the log writes
    // the commit once more. A disk that has no space for that keeps nobody from reading.
    try {
        database_.moveLog();
    } catch (const RecordError& error) {
        if (error.kind() == Kind::Damaged) {
            throw;
        }
        mustMoveLog_ = true;
    }
    for (FilePlace* const place : {&file_, &log_}) {
        place->file = system::identityOf(place->path.c_str());
    }
}

// Throws if the next host would not find what this one has written.
void Record::Database::checkFiles() const {
    for (const FilePlace* const place : {&file_, &log_}) {
        if (system::identityOf(place->path.c_str()) != place->file) {
            database_.fail(Kind::Failed, "write",
                           fmt::format("somebody removed or replaced the file {}", place->path));
        }
    }
}

Record::Contents Record::Database::read() {
    Contents contents;
    const SqliteStatement state =
        database_.prepare("read",
                          "SELECT revision, epoch, fileRevision, fingerprint, isBeingWritten, bytes"
                          " FROM state JOIN otherKeys USING (id)");
    {
        SqliteRun row(database_, "read", state);
        if (!row.step()) {
            database_.failAsDamaged("it has no revision");
        }
        contents.revision = row.integer(0);
        if (contents.revision < 0) {
            database_.failAsDamaged("its revision is negative");
        }
        contents.epoch = static_cast<uint64_t>(row.integer(1));
        contents.file.revision = row.integer(2);
        contents.file.fingerprint = static_cast<uint64_t>(row.integer(3));
        contents.file.isBeingWritten = row.integer(4) != 0;
        contents.file.otherKeys = row.bytes(5);
    }
    const SqliteStatement services =
        database_.prepare("read", "SELECT id, revision, address FROM services ORDER BY id");
    for (SqliteRun row(database_, "read", services); row.step();) {
        const int64_t id = row.integer(0);
        if (id < std::numeric_limits<int32_t>::min() || id > std::numeric_limits<int32_t>::max() ||
            (!contents.services.empty() && id <= contents.services.back().id)) {
            database_.failAsDamaged(fmt::format("the service {} cannot be there", id));
        }
        contents.revision = std::max(contents.revision, row.integer(1));
        contents.services.push_back({static_cast<int32_t>(id), std::string(row.bytes(2))});
    }
    return contents;
}

void Record::Database::commit(int64_t revision, const Edits& edits, const FileNote* note) {
    if (mustMoveLog_) {
        database_.moveLog();
        mustMoveLog_ = false;
    }
    change(revision, edits, note);
    hasWrittenEpoch_ = true;
    checkFiles();
}

void Record::Database::change(int64_t revision, const Edits& edits, const FileNote* note) const {
    SqliteRun(database_, "write", begin_).step();
    const bool hasWrittenRevision = changeServices(revision, edits);
    if (!hasWrittenRevision || !hasWrittenEpoch_ || note != nullptr) {
        changeState(revision, note);
    }
    // SQLite moves a long log into the database after the commit. The log stays and grows if that
    // fails, and the commit is kept all the same.
    SqliteRun(database_, "write", end_).step();
}

// Returns whether a service has the revision afterwards.
bool Record::Database::changeServices(int64_t revision, const Edits& edits) const {
    bool hasRevision = false;
    for (const auto& [id, address] : edits) {
        if (address) {
            SqliteRun(database_, "write", put_)
                .bind(1, id)
                .bind(2, revision)
                .bind(3, *address)
                .step();
            hasRevision = true;
        } else {
            SqliteRun(database_, "write", remove_).bind(1, id).step();
        }
    }
    return hasRevision;
}

void Record::Database::changeState(int64_t revision, const FileNote* note) const {
    if (note == nullptr) {
        SqliteRun(database_, "write", setRevision_).bind(1, revision).bind(2, epoch_).step();
        return;
    }
    SqliteRun(database_, "write", setNote_)
        .bind(1, revision)
        .bind(2, epoch_)
        .bind(3, note->revision)
        .bind(4, static_cast<int64_t>(note->fingerprint))
        .bind(5, note->isBeingWritten ? 1 : 0)
        .step();
    SqliteRun(database_, "write", setOtherKeys_).bind(1, note->otherKeys).step();
}

bool Record::hasContent(const std::string& path) {
    struct stat status = {};
    return ::lstat(path.c_str(), &status) == 0 && (!S_ISREG(status.st_mode) || status.st_size != 0);
}

std::string Record::setAside(const std::string& path) {
    std::string name = fmt::format("{}.damaged-{}-{}", path, std::time(nullptr), getpid());
    if (std::rename(path.c_str(), name.c_str()) != 0) {
        throw RecordError(Kind::Failed, fmt::format("cannot set the damaged record {} aside: {}",
                                                    path, std::generic_category().message(errno)));
    }
    // The log belongs to the database. A new database must not find it.
    static_cast<void>(std::rename((path + "-wal").c_str(), (name + "-wal").c_str()));
    return name;
}

Record::Record(const std::string& path, uint64_t epoch)
    : database_(std::make_unique<Database>(path, epoch)) {}

Record::~Record() = default;

Record::Contents Record::read() {
    return database_->read();
}

void Record::commit(int64_t revision, const Edits& edits, const FileNote* note) {
    database_->commit(revision, edits, note);
}

void Record::close() {
    const std::unique_ptr<Database> database = std::move(database_);
    database->close();
}

}  // namespace qv::host
