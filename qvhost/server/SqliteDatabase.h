// SPDX-License-Identifier: Apache-2.0

// Opens a record's database, runs statements in it, and makes errors of SQLite into RecordErrors.
//
//     SqliteDatabase database("/var/lib/Vornak/LorxCore/namingService.record");
//     database.useLog();
//     const SqliteStatement put = database.prepare("open", "REPLACE INTO a(id, b) VALUES (?1,
//     ?2)"); SqliteRun(database, "write", put).bind(1, id).bind(2, bytes).step();
//
// `attempt` is a verb, which completes "cannot ... the record". A database outlives its statements.
#ifndef QVHOST_SERVER_SQLITE_DATABASE_H
#define QVHOST_SERVER_SQLITE_DATABASE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "server/Record.h"

struct sqlite3;
struct sqlite3_stmt;

namespace qv::host {

struct SqliteCloser {
    void operator()(sqlite3* database) const noexcept;
};

struct SqliteFinalizer {
    void operator()(sqlite3_stmt* statement) const noexcept;
};

using SqliteStatement = std::unique_ptr<sqlite3_stmt, SqliteFinalizer>;

class SqliteDatabase {
  public:
    // Opens a file that is there. No other process can use the database once something was read
    // from it. The destructor moves the log into the database, if that is possible, and removes it.
    explicit SqliteDatabase(const std::string& path);

    const std::string& path() const { return path_; }

    // Makes later changes go to a log beside the database, which has the name of the database with
    // "-wal" behind it.
    void useLog() const;

    // Moves the log into the database and flushes the database. Keeps the log's file.
    void moveLog() const;

    // Undoes an unfinished transaction, moves the log and makes its file empty.
    void emptyLog() const;

    void execute(const char* attempt, const std::string& sql) const;

    // Throws RecordError::Kind::Damaged if the database lacks what the statement names.
    SqliteStatement prepare(const char* attempt, const char* sql) const;

    // Returns the number that a query gives.
    int64_t number(const char* sql) const;

    // Throws what SQLite says about its last error.
    [[noreturn]] void fail(const char* attempt) const;
    [[noreturn]] void fail(RecordError::Kind kind, const char* attempt,
                           std::string_view reason) const;
    [[noreturn]] void failAsDamaged(std::string_view reason) const {
        fail(RecordError::Kind::Damaged, "read", reason);
    }

  private:
    int diskError() const;

    std::string path_;
    std::unique_ptr<sqlite3, SqliteCloser> handle_;
};

// Runs a statement once. The destructor makes the statement ready for the next run.
class SqliteRun {
  public:
    SqliteRun(const SqliteDatabase& database, const char* attempt, const SqliteStatement& statement)
        : database_(database), attempt_(attempt), statement_(statement.get()) {}
    ~SqliteRun();

    SqliteRun(const SqliteRun&) = delete;
    SqliteRun& operator=(const SqliteRun&) = delete;

    // Set a value of the statement, counted from 1. The bytes must live as long as the object.
    SqliteRun& bind(int index, int64_t value);
    SqliteRun& bind(int index, std::string_view bytes);

    // Returns true if there is a row, false at the end.
    bool step();

    // Return a value of the row, counted from 0. Throw RecordError::Kind::Damaged if the value has
    // another type. The bytes are valid until the next step.
    int64_t integer(int column) const;
    std::string_view bytes(int column) const;

  private:
    void check(int result) const;

    const SqliteDatabase& database_;
    const char* attempt_;
    sqlite3_stmt* statement_;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_SQLITE_DATABASE_H
