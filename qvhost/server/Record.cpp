#include "server/Record.h"

#include <QvSystem/Descriptor.h>
#include <QvSystem/Directories.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

namespace qv::host {

namespace {

using Kind = RecordError::Kind;

// The database carries these two numbers, so that a host refuses what it does not understand.
constexpr int64_t kApplication = 0x71767263;
constexpr int64_t kFormat = 1;

// Exclusive locking comes before the log, which then needs no file of shared memory. SQLite leaves
// out what it does not know, so the settings for macOS are set everywhere.
constexpr char kSettings[] =
    "PRAGMA locking_mode=EXCLUSIVE;"
    "PRAGMA synchronous=FULL;"
    "PRAGMA fullfsync=ON;"
    "PRAGMA checkpoint_fullfsync=ON;"
    "PRAGMA temp_store=MEMORY;"
    "PRAGMA mmap_size=0;"
    "PRAGMA secure_delete=OFF;"
    "PRAGMA trusted_schema=OFF;"
    "PRAGMA cell_size_check=ON;";

// The other keys have a table of their own, because a commit rewrites the whole row that it
// changes.
constexpr char kSchema[] =
    "BEGIN IMMEDIATE;"
    "CREATE TABLE services(id INTEGER PRIMARY KEY, address BLOB NOT NULL);"
    "CREATE TABLE state(id INTEGER PRIMARY KEY CHECK (id = 1), revision INTEGER NOT NULL,"
    " fileRevision INTEGER NOT NULL, fingerprint INTEGER NOT NULL,"
    " isBeingWritten INTEGER NOT NULL);"
    "CREATE TABLE otherKeys(id INTEGER PRIMARY KEY CHECK (id = 1), bytes BLOB NOT NULL);"
    "INSERT INTO state VALUES (1, 0, 0, 0, 0);"
    "INSERT INTO otherKeys VALUES (1, x'');"
    "PRAGMA application_id={};"
    "PRAGMA user_version={};"
    "COMMIT;";

struct DatabaseCloser {
    // SQLite also moves the log into the database if that is possible.
    void operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }
};
using DatabasePointer = std::unique_ptr<sqlite3, DatabaseCloser>;

struct StatementFinalizer {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using StatementPointer = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

std::string messageOf(int error) {
    return std::generic_category().message(error);
}

// Returns the same path without links in its directory, because SQLite refuses links everywhere.
std::string resolved(const std::string& path) {
    const std::string directory = system::directoryOf(path);
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(directory.c_str(), nullptr),
                                                           &std::free);
    if (!real) {
        const int error = errno;
        throw RecordError(Kind::Failed,
                          fmt::format("cannot open the record {}: the directory {}: {}", path,
                                      directory, messageOf(error)));
    }
    const std::string name = path.substr(path.rfind('/') + 1);
    return std::string(real.get()) + '/' + name;
}

// Makes the file if there is none, and gives it the mode, whatever the umask is. Opens no file that
// is there, because closing it would end the locks that another record of this process holds.
void makeFile(const std::string& path) {
    constexpr mode_t kMode = 0600;
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const auto fail = [&path](const char* attempt) {
        throw RecordError(Kind::Failed, fmt::format("cannot {} the record {}: {}", attempt, path,
                                                    messageOf(errno)));
    };
    const system::Descriptor made(::open(path.c_str(), kFlags, kMode));
    if (!made && errno != EEXIST) {
        fail("make");
    }
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0) {
        fail("open");
    }
    if (!S_ISREG(status.st_mode)) {
        throw RecordError(Kind::Failed,
                          fmt::format("cannot open the record {}: it is no regular file", path));
    }
    if ((status.st_mode & 07777U) != kMode && ::chmod(path.c_str(), kMode) != 0) {
        fail("set the mode of");
    }
}

// Recognises a file that somebody removes or replaces while it is open.
struct FilePlace {
    std::string path;
    dev_t device = 0;
    ino_t file = 0;
};

// Leaves the numbers at 0, which no file has, if nothing is at the path.
FilePlace placeOf(const std::string& path) {
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0) {
        status = {};
    }
    return {path, status.st_dev, status.st_ino};
}

}  // namespace

class Record::Database {
  public:
    explicit Database(const std::string& path);

    Contents read();
    void commit(int64_t revision, const Edits& edits, const FileNote* note);
    void close();

  private:
    class Statement;

    [[noreturn]] void fail(const char* attempt) const;
    [[noreturn]] void fail(Kind kind, const char* attempt, std::string_view reason) const;
    [[noreturn]] void failAsDamaged(std::string_view reason) const {
        fail(Kind::Damaged, "read", reason);
    }

    int diskError() const;
    void open();
    void checkFormat();
    void prepareChanges();
    void execute(const char* attempt, const std::string& sql) const;
    StatementPointer prepare(const char* attempt, const char* sql) const;
    int64_t number(const char* sql) const;
    void moveLog(int mode) const;
    void checkFiles() const;
    void change(int64_t revision, const Edits& edits, const FileNote* note) const;

    std::string path_;
    DatabasePointer handle_;
    StatementPointer begin_;
    StatementPointer end_;
    StatementPointer put_;
    StatementPointer remove_;
    StatementPointer setRevision_;
    StatementPointer setNote_;
    StatementPointer setOtherKeys_;
    FilePlace file_;
    FilePlace log_;
    bool mustMoveLog_ = false;
};

// Runs a prepared statement once, and makes it ready to run again.
class Record::Database::Statement {
  public:
    Statement(const Database& database, const char* attempt, const StatementPointer& statement)
        : database_(database), attempt_(attempt), statement_(statement.get()) {}
    ~Statement() {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int index, int64_t value) {
        check(sqlite3_bind_int64(statement_, index, value));
        return *this;
    }

    // The bytes must live as long as the object.
    Statement& bind(int index, std::string_view bytes) {
        check(sqlite3_bind_blob64(statement_, index, bytes.data(), bytes.size(), SQLITE_STATIC));
        return *this;
    }

    // Returns true if there is a row, false at the end.
    bool step() {
        const int result = sqlite3_step(statement_);
        if (result != SQLITE_ROW && result != SQLITE_DONE) {
            database_.fail(attempt_);
        }
        return result == SQLITE_ROW;
    }

    int64_t integer(int column) const {
        if (sqlite3_column_type(statement_, column) != SQLITE_INTEGER) {
            database_.failAsDamaged("a value in it is no number");
        }
        return sqlite3_column_int64(statement_, column);
    }

    // The bytes are valid until the next step.
    std::string_view bytes(int column) const {
        if (sqlite3_column_type(statement_, column) != SQLITE_BLOB) {
            database_.failAsDamaged("a value in it is no sequence of bytes");
        }
        const void* const data = sqlite3_column_blob(statement_, column);
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
        return data == nullptr ? std::string_view()
                               : std::string_view(static_cast<const char*>(data), size);
    }

  private:
    void check(int result) const {
        if (result != SQLITE_OK) {
            database_.fail(attempt_);
        }
    }

    const Database& database_;
    const char* attempt_;
    sqlite3_stmt* statement_;
};

Record::Database::Database(const std::string& path) : path_(resolved(path)) {
    makeFile(path_);
    open();
    checkFormat();
    prepareChanges();
    // The log may hold a commit that the last host could not flush. Then only the system's memory
    // has the commit, and a power failure would take all later ones with it. Moving the log writes
    // the commit once more. A disk that has no space for that keeps nobody from reading.
    try {
        moveLog(SQLITE_CHECKPOINT_PASSIVE);
    } catch (const RecordError& error) {
        if (error.kind() == Kind::Damaged) {
            throw;
        }
        mustMoveLog_ = true;
    }
    file_ = placeOf(path_);
    log_ = placeOf(path_ + "-wal");
}

// Returns the last error of the system in the database file or its log, or 0 if there was none.
int Record::Database::diskError() const {
    int error = 0;
    sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_LAST_ERRNO, &error);
    sqlite3_file* log = nullptr;
    sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
    if (error == 0 && log != nullptr && log->pMethods != nullptr) {
        log->pMethods->xFileControl(log, SQLITE_FCNTL_LAST_ERRNO, &error);
    }
    return error;
}

// Throws what SQLite says about its last error.
void Record::Database::fail(const char* attempt) const {
    const int code = sqlite3_errcode(handle_.get());
    const int group = code & 0xff;
    if (group == SQLITE_BUSY) {
        fail(Kind::Failed, attempt, "another process is using it");
    }
    if (group == SQLITE_READONLY) {
        fail(Kind::Failed, attempt, "the file or its directory may not be written");
    }
    const bool isDamaged = group == SQLITE_CORRUPT || group == SQLITE_NOTADB;
    const int error = group == SQLITE_CANTOPEN ? sqlite3_system_errno(handle_.get()) : diskError();
    if (error != 0 && (isDamaged || group == SQLITE_IOERR || group == SQLITE_CANTOPEN)) {
        // SQLite takes a database for damaged if the disk cannot read it.
        fail(Kind::Failed, attempt, messageOf(error));
    }
    fail(isDamaged ? Kind::Damaged : Kind::Failed, attempt, sqlite3_errmsg(handle_.get()));
}

void Record::Database::fail(Kind kind, const char* attempt, std::string_view reason) const {
    throw RecordError(kind, fmt::format("cannot {} the record {}: {}", attempt, path_, reason));
}

void Record::Database::open() {
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX |
                           SQLITE_OPEN_PRIVATECACHE;
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path_.c_str(), &handle, kFlags, nullptr);
    handle_.reset(handle);
    if (!handle_) {
        throw std::bad_alloc();
    }
    if (result != SQLITE_OK) {
        fail("open");
    }
    sqlite3_extended_result_codes(handle, 1);
    if (sqlite3_db_readonly(handle, "main") != 0) {
        fail(Kind::Failed, "open", "the file may not be written");
    }
    execute("open", kSettings);
    const StatementPointer query = prepare("open", "PRAGMA journal_mode=WAL");
    Statement statement(*this, "open", query);
    statement.step();
    const unsigned char* const mode = sqlite3_column_text(query.get(), 0);
    if (mode == nullptr || reinterpret_cast<const char*>(mode) != std::string_view("wal")) {
        fail(Kind::Failed, "open", "SQLite cannot keep a log beside it");
    }
}

// Makes the tables in a new database, and refuses the database of another program.
void Record::Database::checkFormat() {
    const int64_t application = number("PRAGMA application_id");
    const int64_t format = number("PRAGMA user_version");
    if (application == 0 && format == 0 && number("SELECT count(*) FROM sqlite_master") == 0) {
        execute("make", fmt::format(kSchema, kApplication, kFormat));
        return;
    }
    if (application != kApplication) {
        fail(Kind::Failed, "open", "it is a database of another program");
    }
    if (format > kFormat) {
        fail(Kind::Failed, "open",
             fmt::format("a newer qvhost wrote it, in format {}, and this one knows only format {}",
                         format, kFormat));
    }
    if (format != kFormat) {
        failAsDamaged("it does not name its format");
    }
}

void Record::Database::prepareChanges() {
    const auto make = [this](StatementPointer& statement, const char* sql) {
        statement = prepare("open", sql);
    };
    make(begin_, "BEGIN IMMEDIATE");
    make(end_, "COMMIT");
    make(put_, "REPLACE INTO services(id, address) VALUES (?1, ?2)");
    make(remove_, "DELETE FROM services WHERE id = ?1");
    make(setRevision_, "UPDATE state SET revision = ?1");
    make(setNote_,
         "UPDATE state SET revision = ?1, fileRevision = ?2, fingerprint = ?3,"
         " isBeingWritten = ?4");
    // A row that stays as it is costs nothing.
    make(setOtherKeys_, "UPDATE otherKeys SET bytes = ?1 WHERE bytes <> ?1");
}

void Record::Database::execute(const char* attempt, const std::string& sql) const {
    if (sqlite3_exec(handle_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(attempt);
    }
}

StatementPointer Record::Database::prepare(const char* attempt, const char* sql) const {
    sqlite3_stmt* statement = nullptr;
    const int result =
        sqlite3_prepare_v3(handle_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    StatementPointer prepared(statement);
    if ((result & 0xff) == SQLITE_ERROR) {
        // The statement is right, so a table is missing or has other columns.
        failAsDamaged(sqlite3_errmsg(handle_.get()));
    }
    if (result != SQLITE_OK) {
        fail(attempt);
    }
    return prepared;
}

int64_t Record::Database::number(const char* sql) const {
    const StatementPointer query = prepare("open", sql);
    Statement statement(*this, "open", query);
    return statement.step() ? statement.integer(0) : 0;
}

void Record::Database::moveLog(int mode) const {
    if (sqlite3_wal_checkpoint_v2(handle_.get(), "main", mode, nullptr, nullptr) != SQLITE_OK) {
        fail("write");
    }
}

// Throws if the next host would not find what this one has written.
void Record::Database::checkFiles() const {
    for (const FilePlace* const place : {&file_, &log_}) {
        const FilePlace now = placeOf(place->path);
        if (now.file != place->file || now.device != place->device) {
            fail(Kind::Failed, "write",
                 fmt::format("somebody removed or replaced the file {}", place->path));
        }
    }
}

Record::Contents Record::Database::read() {
    Contents contents;
    const StatementPointer state =
        prepare("read",
                "SELECT revision, fileRevision, fingerprint, isBeingWritten, bytes"
                " FROM state JOIN otherKeys USING (id)");
    {
        Statement row(*this, "read", state);
        if (!row.step()) {
            failAsDamaged("it has no revision");
        }
        contents.revision = row.integer(0);
        if (contents.revision < 0) {
            failAsDamaged("its revision is negative");
        }
        contents.file.revision = row.integer(1);
        contents.file.fingerprint = static_cast<uint64_t>(row.integer(2));
        contents.file.isBeingWritten = row.integer(3) != 0;
        contents.file.otherKeys = row.bytes(4);
    }
    const StatementPointer services =
        prepare("read", "SELECT id, address FROM services ORDER BY id");
    for (Statement row(*this, "read", services); row.step();) {
        const int64_t id = row.integer(0);
        if (id < std::numeric_limits<int32_t>::min() || id > std::numeric_limits<int32_t>::max() ||
            (!contents.services.empty() && id <= contents.services.back().id)) {
            failAsDamaged(fmt::format("the service {} cannot be there", id));
        }
        contents.services.push_back({static_cast<int32_t>(id), std::string(row.bytes(1))});
    }
    return contents;
}

void Record::Database::commit(int64_t revision, const Edits& edits, const FileNote* note) {
    if (mustMoveLog_) {
        moveLog(SQLITE_CHECKPOINT_PASSIVE);
        mustMoveLog_ = false;
    }
    try {
        change(revision, edits, note);
    } catch (...) {
        // Does nothing if SQLite has undone the changes itself.
        sqlite3_exec(handle_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
    checkFiles();
}

void Record::Database::change(int64_t revision, const Edits& edits, const FileNote* note) const {
    constexpr char kAttempt[] = "write";
    Statement(*this, kAttempt, begin_).step();
    for (const auto& [id, address] : edits) {
        if (address) {
            Statement(*this, kAttempt, put_).bind(1, id).bind(2, *address).step();
        } else {
            Statement(*this, kAttempt, remove_).bind(1, id).step();
        }
    }
    if (note == nullptr) {
        Statement(*this, kAttempt, setRevision_).bind(1, revision).step();
    } else {
        Statement(*this, kAttempt, setNote_)
            .bind(1, revision)
            .bind(2, note->revision)
            .bind(3, static_cast<int64_t>(note->fingerprint))
            .bind(4, note->isBeingWritten ? 1 : 0)
            .step();
        Statement(*this, kAttempt, setOtherKeys_).bind(1, note->otherKeys).step();
    }
    // SQLite moves a long log into the database after the commit. The log stays and grows if that
    // fails, and the commit is kept all the same.
    Statement(*this, kAttempt, end_).step();
}

void Record::Database::close() {
    moveLog(SQLITE_CHECKPOINT_TRUNCATE);
}

Record::Record(const std::string& path) : database_(std::make_unique<Database>(path)) {}

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
