// SPDX-License-Identifier: Apache-2.0

#include "server/SqliteDatabase.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <cstddef>
#include <new>
#include <system_error>

#include "server/GatheredLog.h"

namespace qv::host {

namespace {

using Kind = RecordError::Kind;

// Exclusive locking comes before the log, which then needs no file of shared memory. SQLite leaves
// out what a system does not know, so the settings for macOS are set everywhere. A commit writes
// whole pages, and changes of scattered services touch a page each, so the pages are small. The
// size has an effect in a new database only.
constexpr char kSettings[] =
    "PRAGMA page_size=1024;"
    "PRAGMA locking_mode=EXCLUSIVE;"
    "PRAGMA synchronous=FULL;"
    "PRAGMA fullfsync=ON;"
    "PRAGMA checkpoint_fullfsync=ON;"
    "PRAGMA temp_store=MEMORY;"
    "PRAGMA mmap_size=0;"
    "PRAGMA secure_delete=OFF;"
    "PRAGMA trusted_schema=OFF;"
    "PRAGMA cell_size_check=ON;";

// Keeps SQLite from counting its memory, for which it takes a lock at each allocation. Only the
// first database of a process can do this.
void countNoMemory() noexcept {
    static const int result = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    static_cast<void>(result);
}

int emptyLogOf(sqlite3* database) noexcept {
    if (sqlite3_get_autocommit(database) == 0) {
        sqlite3_exec(database, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    return sqlite3_wal_checkpoint_v2(database, "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr,
                                     nullptr);
}

}  // namespace

void SqliteCloser::operator()(sqlite3* database) const noexcept {
    // SQLite leaves the log if somebody has put another database in place. The next record would
    // take the log for part of that database.
    emptyLogOf(database);
    sqlite3_close_v2(database);
}

void SqliteFinalizer::operator()(sqlite3_stmt* statement) const noexcept {
    sqlite3_finalize(statement);
}

SqliteDatabase::SqliteDatabase(const std::string& path) : path_(path) {
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX |
                           SQLITE_OPEN_PRIVATECACHE;
    countNoMemory();
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path_.c_str(), &handle, kFlags, nameOfGatheredLogs());
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
}

void SqliteDatabase::useLog() const {
    const SqliteStatement query = prepare("open", "PRAGMA journal_mode=WAL");
    SqliteRun run(*this, "open", query);
    run.step();
    const unsigned char* const mode = sqlite3_column_text(query.get(), 0);
    if (mode == nullptr || reinterpret_cast<const char*>(mode) != std::string_view("wal")) {
        fail(Kind::Failed, "open", "SQLite cannot keep a log beside it");
    }
}

void SqliteDatabase::moveLog() const {
    if (sqlite3_wal_checkpoint_v2(handle_.get(), "main", SQLITE_CHECKPOINT_PASSIVE, nullptr,
                                  nullptr) != SQLITE_OK) {
        fail("write");
    }
}

void SqliteDatabase::emptyLog() const {
    if (emptyLogOf(handle_.get()) != SQLITE_OK) {
        fail("write");
    }
}

void SqliteDatabase::execute(const char* attempt, const std::string& sql) const {
    if (sqlite3_exec(handle_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(attempt);
    }
}

SqliteStatement SqliteDatabase::prepare(const char* attempt, const char* sql) const {
    sqlite3_stmt* statement = nullptr;
    const int result =
        sqlite3_prepare_v3(handle_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    SqliteStatement prepared(statement);
    if ((result & 0xff) == SQLITE_ERROR) {
        // The statement is right, so a table is missing or has other columns.
        failAsDamaged(sqlite3_errmsg(handle_.get()));
    }
    if (result != SQLITE_OK) {
        fail(attempt);
    }
    return prepared;
}

int64_t SqliteDatabase::number(const char* sql) const {
    const SqliteStatement query = prepare("open", sql);
    SqliteRun run(*this, "open", query);
    return run.step() ? run.integer(0) : 0;
}

// Returns the last error of the system in the database file or its log, or 0 if there was none.
int SqliteDatabase::diskError() const {
    int error = 0;
    sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_LAST_ERRNO, &error);
    sqlite3_file* log = nullptr;
    sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
    if (error == 0 && log != nullptr && log->pMethods != nullptr) {
        log->pMethods->xFileControl(log, SQLITE_FCNTL_LAST_ERRNO, &error);
    }
    return error;
}

void SqliteDatabase::fail(const char* attempt) const {
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
        fail(Kind::Failed, attempt, std::generic_category().message(error));
    }
    fail(isDamaged ? Kind::Damaged : Kind::Failed, attempt, sqlite3_errmsg(handle_.get()));
}

void SqliteDatabase::fail(Kind kind, const char* attempt, std::string_view reason) const {
    throw RecordError(kind, fmt::format("cannot {} the record {}: {}", attempt, path_, reason));
}

SqliteRun::~SqliteRun() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

SqliteRun& SqliteRun::bind(int index, int64_t value) {
    check(sqlite3_bind_int64(statement_, index, value));
    return *this;
}

SqliteRun& SqliteRun::bind(int index, std::string_view bytes) {
    check(sqlite3_bind_blob64(statement_, index, bytes.data(), bytes.size(), SQLITE_STATIC));
    return *this;
}

bool SqliteRun::step() {
    const int result = sqlite3_step(statement_);
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        database_.fail(attempt_);
    }
    return result == SQLITE_ROW;
}

int64_t SqliteRun::integer(int column) const {
    if (sqlite3_column_type(statement_, column) != SQLITE_INTEGER) {
        database_.failAsDamaged("a value in it is no number");
    }
    return sqlite3_column_int64(statement_, column);
}

std::string_view SqliteRun::bytes(int column) const {
    if (sqlite3_column_type(statement_, column) != SQLITE_BLOB) {
        database_.failAsDamaged("a value in it is no sequence of bytes");
    }
    const void* const data = sqlite3_column_blob(statement_, column);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    return data == nullptr ? std::string_view()
                           : std::string_view(static_cast<const char*>(data), size);
}

void SqliteRun::check(int result) const {
    if (result != SQLITE_OK) {
        database_.fail(attempt_);
    }
}

}  // namespace qv::host
