// SPDX-License-Identifier: Apache-2.0

// The files of a resident host in a temporary directory of the process: the plug-in's file, its
// backup, the record, and what the host puts aside. A crash is an image of the files, with which
// the next host begins.
#ifndef QV_FUZZ_HOST_FILES_H
#define QV_FUZZ_HOST_FILES_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "CoreFoundation/Tree.h"
#include "server/Record.h"

namespace qv::fuzz {

// The addresses of services by their identifiers.
using Services = std::map<std::int32_t, std::string>;

// What the bytes of a plug-in's file say, read without the code of qvhost.
struct FileContent {
    bool isWhole = false;      // the plug-in can load it
    bool isDirectory = false;  // lists services, each with an identifier and an address
    Services services;         // that the plug-in loads
    Tree otherKeys;            // the dictionary without "Address"
    // A document with the same services and keys reads back the same.
    bool canBeWritten = false;
};
FileContent contentIn(const std::string& bytes);

// The bytes of all regular files by their paths in the directory.
struct Image {
    std::map<std::string, std::string> files;
    std::map<std::string, bool> directories;  // that are in the place of a file
    ino_t inode = 0;                          // of the plug-in's file

    std::optional<std::string> file() const;
    std::optional<std::string> backup() const;
    bool isFileADirectory() const;
    bool hasLog() const;  // of the record

    // What a host was writing when it was killed.
    void setFile(const std::string& bytes);
    void setBackup(const std::string& bytes);
    void setNewFile(const std::string& bytes);
};

// What a host finds in the record of an image.
struct RecordContent {
    enum class Kind { None, Usable, Damaged, Unopenable };
    Kind kind = Kind::None;
    host::Record::Contents contents;
    Services services;
};

// Its functions work whatever the limit for the length of files is.
class HostFiles {
  public:
    HostFiles();
    ~HostFiles();
    HostFiles(const HostFiles&) = delete;
    HostFiles& operator=(const HostFiles&) = delete;

    static std::string path();

    static std::optional<std::string> file();
    static std::optional<std::string> backup();
    static bool isFileADirectory();
    static Image image();
    static void restore(const Image& image);
    static RecordContent recordIn(const Image& image);

    static void write(const std::string& bytes);
    static void replace(const std::string& bytes);
    static void replaceByDirectory();
    static void remove();
    static void writeBackup(const std::string& bytes);
    static void removeBackup();

    // Damages or removes the record, in one of several ways. No host may run.
    static void damageRecord(unsigned way);
};

// Returns what a write of `recent` over `old` leaves that was stopped after `length` bytes.
std::string mixtureOf(const std::string& old, const std::string& recent, std::size_t length);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_HOST_FILES_H
