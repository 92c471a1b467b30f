// SPDX-License-Identifier: Apache-2.0

#include "server/GatheredLog.h"

#include <sqlite3.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <new>

namespace qv::host {

namespace {

constexpr char kNameOfGatheredLogs[] = "qvhost";

// The pages of a commit that changes some sixty scattered services.
constexpr std::size_t kMostGathered = std::size_t{64} * 1024;

// The bytes that are not written yet, one piece of the file.
struct Gathered {
    sqlite3_int64 offset = 0;
    std::size_t size = 0;
    std::array<char, kMostGathered> bytes = {};
};

// SQLite allocates the object, and the file of the system behind it.
struct GatheredLog {
    sqlite3_file base;
    Gathered* gathered;
};

sqlite3_file* fileBehind(sqlite3_file* log) {
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<GatheredLog*>(log) + 1);
}

Gathered& gatheredOf(sqlite3_file* log) {
    return *reinterpret_cast<GatheredLog*>(log)->gathered;
}

// Writes what was gathered, and forgets it.
int writeGathered(sqlite3_file* log) {
    Gathered& gathered = gatheredOf(log);
    if (gathered.size == 0) {
        return SQLITE_OK;
    }
    const int size = static_cast<int>(gathered.size);
    gathered.size = 0;
    sqlite3_file* const file = fileBehind(log);
    return file->pMethods->xWrite(file, gathered.bytes.data(), size, gathered.offset);
}

// Adds the bytes to what is gathered. Writes that first if the bytes do not follow or do not fit.
int gather(sqlite3_file* log, const void* bytes, int count, sqlite3_int64 offset) {
    Gathered& gathered = gatheredOf(log);
    const auto size = static_cast<std::size_t>(count);
    const bool follows = offset == gathered.offset + static_cast<sqlite3_int64>(gathered.size);
    if (!follows || size > kMostGathered - gathered.size) {
        if (const int result = writeGathered(log); result != SQLITE_OK) {
            return result;
        }
        gathered.offset = offset;
    }
    if (size > kMostGathered) {
        sqlite3_file* const file = fileBehind(log);
        return file->pMethods->xWrite(file, bytes, count, offset);
    }
    std::memcpy(gathered.bytes.data() + gathered.size, bytes, size);
    gathered.size += size;
    return SQLITE_OK;
}

// Calls a function of the file, which then has everything.
template <auto Method, typename... Arguments>
int callWrittenFile(sqlite3_file* log, Arguments... arguments) {
    if (const int result = writeGathered(log); result != SQLITE_OK) {
        return result;
    }
    sqlite3_file* const file = fileBehind(log);
    return (file->pMethods->*Method)(file, arguments...);
}

// Calls a function of the file that does not depend on its content.
template <auto Method, typename... Arguments>
int callFile(sqlite3_file* log, Arguments... arguments) {
    sqlite3_file* const file = fileBehind(log);
    return (file->pMethods->*Method)(file, arguments...);
}

int closeGathered(sqlite3_file* log) {
    const int written = writeGathered(log);
    delete reinterpret_cast<GatheredLog*>(log)->gathered;
    sqlite3_file* const file = fileBehind(log);
    const int closed = file->pMethods->xClose(file);
    return written == SQLITE_OK ? closed : written;
}

// The first version has no functions that map a file, which SQLite does not do with a log.
constexpr sqlite3_io_methods kMethodsOfGatheredLog = {
    1,
    closeGathered,
    callWrittenFile<&sqlite3_io_methods::xRead, void*, int, sqlite3_int64>,
    gather,
    callWrittenFile<&sqlite3_io_methods::xTruncate, sqlite3_int64>,
    callWrittenFile<&sqlite3_io_methods::xSync, int>,
    callWrittenFile<&sqlite3_io_methods::xFileSize, sqlite3_int64*>,
    callFile<&sqlite3_io_methods::xLock, int>,
    callFile<&sqlite3_io_methods::xUnlock, int>,
    callFile<&sqlite3_io_methods::xCheckReservedLock, int*>,
    callFile<&sqlite3_io_methods::xFileControl, int, void*>,
    callFile<&sqlite3_io_methods::xSectorSize>,
    callFile<&sqlite3_io_methods::xDeviceCharacteristics>,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

const sqlite3_vfs* filesOfSystem = nullptr;

int openGathered(sqlite3_vfs* vfs, const char* name, sqlite3_file* opened, int flags,
                 int* flagsOfFile) {
    if ((flags & SQLITE_OPEN_WAL) == 0) {
        return filesOfSystem->xOpen(vfs, name, opened, flags, flagsOfFile);
    }
    opened->pMethods = nullptr;
    auto* const gathered = new (std::nothrow) Gathered;
    if (gathered == nullptr) {
        return SQLITE_NOMEM;
    }
    reinterpret_cast<GatheredLog*>(opened)->gathered = gathered;
    const int result = filesOfSystem->xOpen(vfs, name, fileBehind(opened), flags, flagsOfFile);
    if (result != SQLITE_OK) {
        delete gathered;
        return result;
    }
    opened->pMethods = &kMethodsOfGatheredLog;
    return SQLITE_OK;
}

}  // namespace

const char* nameOfGatheredLogs() noexcept {
    static sqlite3_vfs vfs;
    static const bool isRegistered = [] {
        filesOfSystem = sqlite3_vfs_find(nullptr);
        if (filesOfSystem == nullptr) {
            return false;
        }
        vfs = *filesOfSystem;
        vfs.zName = kNameOfGatheredLogs;
        vfs.szOsFile += static_cast<int>(sizeof(GatheredLog));
        vfs.xOpen = openGathered;
        return sqlite3_vfs_register(&vfs, 0) == SQLITE_OK;
    }();
    return isRegistered ? kNameOfGatheredLogs : nullptr;
}

}  // namespace qv::host
