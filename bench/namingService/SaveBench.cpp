// SPDX-License-Identifier: Apache-2.0

// Compares a registration that changes and therefore saves the directory, in memory and on a disk,
// with
//   - the bare file work for the same bytes: only the same calls, in the same order;
//   - the same change in a database of one table, with a durable commit.
// Also measures the start with a directory of that size.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "LoadedPlugin.h"
#include "support/Places.h"
#include "support/Services.h"
#include "support/SleepingThread.h"

namespace {

using qv::bench::addressOf;
using qv::bench::Place;
using Kind = qv::bench::Place::Kind;

// As in any real host.
const qv::bench::SleepingThread g_anotherThread;

constexpr char kFile[] = "namingService.conf.plist";

void require(bool holds, const char* what) {
    if (!holds) {
        static_cast<void>(std::fprintf(stderr, "save_bench: cannot %s\n", what));
        std::abort();
    }
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Loads the plug-in with a file of services in a new directory.
class SavingPlugin {
  public:
    SavingPlugin(Kind kind, int count) : place_(kind), count_(count) {
        require(setenv("QV_CONFIG_DIR", place_.path().c_str(), 1) == 0 &&
                    setenv("QV_LOG_DIR", place_.path().c_str(), 1) == 0,
                "set the environment");
        std::ofstream(file()) << "<plist version=\"1.0\"><dict/></plist>";
        // The plug-in would make the directory with the mode 0600, which only root can use.
        std::filesystem::create_directory(place_.path("backup"));
        plugin_ = std::make_unique<qv::bench::FilledPlugin>(count);
        change();
        requireSaved(file());
        requireSaved(place_.path("backup/") + kFile);
    }

    // Changes the address of a service.
    void change() {
        isMoved_ = !isMoved_;
        plugin_->registerServices(isMoved_ ? moved_ : unmoved_);
    }

    std::string savedBytes() const { return contentOf(file()); }

    void end() { plugin_ = nullptr; }

  private:
    std::string file() const { return place_.path(kFile); }

    void requireSaved(const std::string& path) const {
        require(contentOf(path).find(addressOf(count_ - 1)) != std::string::npos, "save");
    }

    Place place_;
    int count_;
    std::unique_ptr<qv::bench::FilledPlugin> plugin_;
    bool isMoved_ = false;
    std::string moved_ = qv::bench::registration(count_ / 2, addressOf(count_ / 2) + ".a");
    std::string unmoved_ = qv::bench::registration(count_ / 2, addressOf(count_ / 2) + ".b");
};

template <Kind kind>
void registration(benchmark::State& state) {
    SavingPlugin plugin(kind, static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) {
        plugin.change();
    }
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// Copies the file to the backup with the calls of a save.
void copyFile(const std::string& from, const std::string& to) {
    File source(std::fopen(from.c_str(), "r"), &std::fclose);
    require(source != nullptr, "open the file");
    lseek(fileno(source.get()), 0, SEEK_END);
    const auto size = static_cast<std::size_t>(std::ftell(source.get()));
    std::rewind(source.get());
    const std::unique_ptr<char[]> bytes(new char[size]);
    require(std::fread(bytes.get(), 1, size, source.get()) == size, "read the file");
    source.reset();
    const File target(std::fopen(to.c_str(), "w+"), &std::fclose);
    require(target != nullptr && std::fwrite(bytes.get(), 1, size, target.get()) == size &&
                std::fflush(target.get()) == 0,
            "write the backup");
}

template <Kind kind>
void bareFileWork(benchmark::State& state) {
    std::string bytes;
    {
        const SavingPlugin plugin(kind, static_cast<int>(state.range(0)));
        bytes = plugin.savedBytes();
    }
    const Place place(kind);
    const std::string path = place.path(kFile);
    const std::string backupDirectory = place.path("backup");
    const std::string backup = backupDirectory + '/' + kFile;
    std::filesystem::create_directory(backupDirectory);
    std::ofstream(path) << bytes;
    const int file = open(path.c_str(), O_WRONLY);
    require(file != -1, "open the file");
    for ([[maybe_unused]] auto _ : state) {
        struct stat status = {};
        stat(backupDirectory.c_str(), &status);
        copyFile(path, backup);
        stat(path.c_str(), &status);
        benchmark::DoNotOptimize(status);
        // Each save of the plug-in writes other bytes than the last one, so this one does also.
        bytes.back() ^= 1;
        lseek(file, 0, SEEK_SET);
        require(write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
                    ftruncate(file, static_cast<off_t>(bytes.size())) == 0 && fsync(file) == 0,
                "write the file");
    }
    close(file);
}

// Makes a database with one table of services and the default journal.
class Database {
  public:
    Database(Kind kind, int count) : place_(kind) {
        require(sqlite3_open(place_.path("services.db").c_str(), &database_) == SQLITE_OK,
                "open the database");
        run("PRAGMA synchronous = FULL");
        run("CREATE TABLE service (id INTEGER PRIMARY KEY, address TEXT)");
        require(sqlite3_prepare_v2(database_,
                                   "INSERT INTO service VALUES (?1, ?2) "
                                   "ON CONFLICT (id) DO UPDATE SET address = excluded.address",
                                   -1, &upsert_, nullptr) == SQLITE_OK,
                "prepare the statement");
        run("BEGIN");
        for (int id = 0; id < count; ++id) {
            put(id, addressOf(id));
        }
        run("COMMIT");
    }
    ~Database() {
        sqlite3_finalize(upsert_);
        sqlite3_close(database_);
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void put(int id, const std::string& address) {
        sqlite3_bind_int(upsert_, 1, id);
        sqlite3_bind_text(upsert_, 2, address.data(), static_cast<int>(address.size()),
                          SQLITE_STATIC);
        require(sqlite3_step(upsert_) == SQLITE_DONE, "change the database");
        sqlite3_reset(upsert_);
    }

  private:
    void run(const char* statement) {
        require(sqlite3_exec(database_, statement, nullptr, nullptr, nullptr) == SQLITE_OK,
                statement);
    }

    Place place_;
    sqlite3* database_ = nullptr;
    sqlite3_stmt* upsert_ = nullptr;
};

template <Kind kind>
void databaseUpsert(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    const std::string addresses[] = {addressOf(count / 2) + ".a", addressOf(count / 2) + ".b"};
    Database database(kind, count);
    std::size_t turn = 0;
    for ([[maybe_unused]] auto _ : state) {
        database.put(count / 2, addresses[turn ^= 1]);
    }
}

void startUp(benchmark::State& state) {
    SavingPlugin plugin(Kind::Memory, static_cast<int>(state.range(0)));
    plugin.end();
    const qv::bench::LoadedPlugin loaded;
    for ([[maybe_unused]] auto _ : state) {
        loaded.initialize();
        state.PauseTiming();
        loaded.finalize();
        state.ResumeTiming();
    }
}

#define QV_SIZES Arg(100)->Arg(1'000)->Arg(10'000)->UseRealTime()

BENCHMARK(registration<Kind::Memory>)->Name("registrationInMemory")->QV_SIZES;
BENCHMARK(bareFileWork<Kind::Memory>)->Name("bareFileWorkInMemory")->QV_SIZES;
BENCHMARK(databaseUpsert<Kind::Memory>)->Name("databaseUpsertInMemory")->QV_SIZES;
BENCHMARK(registration<Kind::Disk>)->Name("registrationOnDisk")->QV_SIZES;
BENCHMARK(bareFileWork<Kind::Disk>)->Name("bareFileWorkOnDisk")->QV_SIZES;
BENCHMARK(databaseUpsert<Kind::Disk>)->Name("databaseUpsertOnDisk")->QV_SIZES;
BENCHMARK(startUp)->Name("startUp")->QV_SIZES;

}  // namespace
