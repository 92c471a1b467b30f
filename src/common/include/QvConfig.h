// A configuration file: a property list whose root is a dictionary, with a backup copy of the same
// name in the directory "backup" beside it.
//
// The file is read once, when the object is constructed. Where it is missing or damaged, the backup
// takes its place first. Where that does not help either, the object is unloaded for its whole
// life: get(), set() and save() are false, and no file is ever made from nothing.
//
//     QvConfig<NullMutex> config("/a/b/namingService.conf.plist");
//     ServiceInfoArray services;
//     config.get(services, "Address");
//     ...
//     if (config.set(services, "Address")) {
//         config.save();
//     }
//
// save() rewrites the file in place, after it has copied what the file held to the backup. So one
// of the two is whole at any time, and a process that watches the file keeps watching the same one.
// The order is part of the product: other components read both files.
//
// No operation says why it failed, and none throws but for want of memory.
#ifndef QV_CONFIG_H
#define QV_CONFIG_H

#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <new>
#include <string>

#include "QvCFHolder.h"
#include "QvLock.h"
#include "QvPlistConvert.h"

namespace qor::kevra {

// Where the owner of the object excludes all others already.
class NullMutex {
  public:
    void lock() {}
    void unlock() {}
};

// The policy says how calls on one object exclude each other. Two processes, or two objects, on one
// file are not coordinated; save() only sees that the file was replaced or removed, and follows.
template <class MutexPolicy>
class QvConfig {
  public:
    // Reads the file, and remembers whether that worked. The path has to hold a "/"; without one
    // this throws std::length_error. Null makes an object that stays unloaded.
    explicit QvConfig(const char* path);

    // Does not save.
    ~QvConfig();
    QvConfig(const QvConfig&) = delete;
    QvConfig& operator=(const QvConfig&) = delete;

    // Fills the message's `services` from the dictionary that is stored under the key. False where
    // there is none. A dictionary without a list leaves the message as it is; a list with an
    // element that is no service empties it.
    template <class T>
    bool get(T& message, const char* key);

    // Replaces what is stored under the key, in memory. False, with nothing replaced, where the
    // message cannot be converted: where a service's address is not UTF-8, for one.
    template <class T>
    bool set(const T& message, const char* key);

    // Writes everything to the file. True once it was written; whether all of it was, and whether
    // it reached the disk, is not looked at.
    bool save();

    // Replaces the backup by the file's bytes, or the file by the backup's.
    bool copytobackup();
    bool copyfrombackup();

  private:
    static constexpr int kMostRestores = 2;  // that are followed by another attempt to read
    static constexpr const char* kListKey = "services";

    // The operations that others are made of; the caller holds the lock.
    bool readFile();
    bool backUp();
    bool restore();
    bool followFile();
    std::string backupFile() const { return backupDir + "/" + fileName; }
    static bool copyFile(const char* from, const char* to);
    static int openForWriting(const char* path);
    static bool isPipeOrDirectory(const char* path);

    bool loaded = false;
    // Owned. Null until loaded.
    CFHolder<CFMutableDictionaryRef> root;
    // Open for writing from the first save() on; -1 before.
    int fd = -1;
    std::string path;
    std::string backupDir;
    std::string fileName;
    // Of the file when it was last seen; 0 where that is not known.
    std::uint64_t inode = 0;
    MutexPolicy mutex;
};

template <class MutexPolicy>
QvConfig<MutexPolicy>::QvConfig(const char* itsPath) {
    if (itsPath == nullptr) {
        return;
    }
    const Guard<MutexPolicy> guard(mutex);
    path = itsPath;
    // Without a "/" there is no directory to put a backup in: the length of -1 is refused by
    // assign().
    const int slash = static_cast<int>(path.find_last_of('/'));
    fileName = path.substr(static_cast<std::size_t>(slash) + 1);
    backupDir.assign(itsPath, static_cast<std::size_t>(slash));
    backupDir += "/backup";

    // The last restore is not read: what the backup holds stands in the file then, for whoever
    // looks.
    for (int restores = 0; !readFile(); ++restores) {
        if (!restore() || restores == kMostRestores) {
            return;
        }
    }
}

template <class MutexPolicy>
QvConfig<MutexPolicy>::~QvConfig() {
    if (fd != -1) {
        ::close(fd);
    }
}

// One attempt to load.
template <class MutexPolicy>
bool QvConfig<MutexPolicy>::readFile() {
    if (isPipeOrDirectory(path.c_str())) {
        return false;
    }
    std::ifstream file(path);
    if (!file) {
        return false;
    }
    file.seekg(0, std::ios::end);
    // Sizes are 32 bits wide throughout; one of 2 GiB, say, is negative.
    const auto size = static_cast<std::int32_t>(file.tellg());
    if (size <= 0) {
        return false;
    }
    const std::unique_ptr<char[]> bytes(new char[static_cast<std::size_t>(size)]);
    file.seekg(0);
    file.read(bytes.get(), size);
    if (!file) {
        return false;
    }

    CFHolder<CFDataRef> data(CFDataCreateWithBytesNoCopy(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.get()), size, kCFAllocatorNull));
    if (!data) {
        return false;
    }
    CFHolder<CFPropertyListRef> content(CFPropertyListCreateFromXMLData(
        kCFAllocatorDefault, data.get(), kCFPropertyListMutableContainers, nullptr));
    data = {};
    // Validity for the binary format, in which the file is not: what it allows is what has always
    // been taken.
    if (!content || CFGetTypeID(content.get()) != CFDictionaryGetTypeID() ||
        CFPropertyListIsValid(content.get(), kCFPropertyListBinaryFormat_v1_0) == FALSE) {
        return false;
    }
    root = CFHolder<CFMutableDictionaryRef>(
        static_cast<CFMutableDictionaryRef>(const_cast<void*>(content.release())));
    loaded = true;

    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0) {
        inode = status.st_ino;
    }
    return true;
}

template <class MutexPolicy>
template <class T>
bool QvConfig<MutexPolicy>::get(T& message, const char* key) {
    const Guard<MutexPolicy> guard(mutex);
    if (key == nullptr || !loaded) {
        return false;
    }
    const CFHolder<CFStringRef> name = createString(key);
    if (!name) {
        return false;
    }
    const void* const value = CFDictionaryGetValue(root.get(), name.get());
    if (value == nullptr || CFGetTypeID(value) != TypeInfo<T>::CF_TYPE_ID) {
        return false;
    }
    // The result is of no interest: a list that is no list counts like none at all.
    convert(static_cast<CFDictionaryRef>(value), kListKey, *message.mutable_services());
    return message.IsInitialized();
}

template <class MutexPolicy>
template <class T>
bool QvConfig<MutexPolicy>::set(const T& message, const char* key) {
    const Guard<MutexPolicy> guard(mutex);
    if (key == nullptr || !loaded) {
        return false;
    }
    const CFHolder<CFStringRef> name = createString(key);
    if (!name) {
        return false;
    }
    const CFHolder<CFMutableDictionaryRef> dictionary = createDictionary();
    if (!dictionary || !message.IsInitialized()) {
        return false;
    }
    // A message of no elements is an empty dictionary.
    if (message.services_size() != 0) {
        const CFHolder<CFStringRef> listName = createString(kListKey);
        CFArrayRef list = nullptr;
        if (!listName || !convertCreate(message.services(), list)) {
            return false;
        }
        const CFHolder<CFArrayRef> listOwner(list);
        CFDictionaryAddValue(dictionary.get(), listName.get(), list);
    }
    CFDictionaryRemoveValue(root.get(), name.get());
    CFDictionaryAddValue(root.get(), name.get(), dictionary.get());
    // Without memory for one more it is not there, and nothing says so.
    return CFDictionaryContainsKey(root.get(), name.get()) != FALSE;
}

template <class MutexPolicy>
bool QvConfig<MutexPolicy>::save() {
    const Guard<MutexPolicy> guard(mutex);
    if (!loaded) {
        return false;
    }
    // A backup that cannot be written must not keep the file from being.
    static_cast<void>(backUp());
    if (!followFile()) {
        return false;
    }
    const CFHolder<CFDataRef> data(CFPropertyListCreateXMLData(kCFAllocatorDefault, root.get()));
    if (!data) {
        return false;
    }
    const auto length = static_cast<std::int32_t>(CFDataGetLength(data.get()));
    if (::lseek(fd, 0, SEEK_SET) == -1 ||
        // In one call, so that a reader hardly ever sees half of it.
        ::write(fd, CFDataGetBytePtr(data.get()), static_cast<std::size_t>(length)) < 0) {
        return false;
    }
    // Neither result counts: the bytes are written, and what may not have been cut off follows the
    // first complete element, behind which nobody reads.
    [[maybe_unused]] const int truncated = ::ftruncate(fd, length);
    ::fsync(fd);
    return true;
}

// Makes `fd` the file at `path`. False if the file was never open and cannot be opened.
//
// A descriptor that is replaced is not closed. It stays open until the process ends.
template <class MutexPolicy>
bool QvConfig<MutexPolicy>::followFile() {
    if (fd == -1) {
        fd = openForWriting(path.c_str());
        if (fd < 0) {
            return false;
        }
    }
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) {
        fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        static_cast<void>(::stat(path.c_str(), &status));
        inode = status.st_ino;
    } else if (status.st_ino != inode) {
        fd = openForWriting(path.c_str());
        inode = status.st_ino;
    }
    return true;
}

template <class MutexPolicy>
bool QvConfig<MutexPolicy>::copytobackup() {
    const Guard<MutexPolicy> guard(mutex);
    return backUp();
}

template <class MutexPolicy>
bool QvConfig<MutexPolicy>::copyfrombackup() {
    const Guard<MutexPolicy> guard(mutex);
    return restore();
}

template <class MutexPolicy>
bool QvConfig<MutexPolicy>::backUp() {
    if (!loaded) {
        return false;
    }
    struct stat status = {};
    if (::stat(backupDir.c_str(), &status) != 0) {
        // Without the right to search it, so only root can use it: the product's core runs as root,
        // and nobody else is to read the backup.
        static_cast<void>(::mkdir(backupDir.c_str(), 0600));
    }
    return copyFile(path.c_str(), backupFile().c_str());
}

template <class MutexPolicy>
bool QvConfig<MutexPolicy>::restore() {
    return copyFile(backupFile().c_str(), path.c_str());
}

template <class MutexPolicy>
bool QvConfig<MutexPolicy>::copyFile(const char* from, const char* to) {
    using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

    if (isPipeOrDirectory(from)) {
        return false;
    }
    File source(std::fopen(from, "r"), &std::fclose);
    if (source == nullptr) {
        return false;
    }
    ::lseek(fileno(source.get()), 0, SEEK_END);
    const auto length = static_cast<std::int32_t>(std::ftell(source.get()));
    std::rewind(source.get());
    if (length < 0) {
        return false;
    }
    const auto size = static_cast<std::size_t>(length);
    const std::unique_ptr<char[]> bytes(new (std::nothrow) char[size]);
    if (bytes == nullptr) {
        return false;
    }
    const bool isRead = std::fread(bytes.get(), 1, size, source.get()) == size;
    source.reset();
    if (!isRead) {
        return false;
    }

    if (isPipeOrDirectory(to)) {
        return false;
    }
    File target(std::fopen(to, "w+"), &std::fclose);
    if (target == nullptr || std::fwrite(bytes.get(), 1, size, target.get()) != size) {
        return false;
    }
    std::fflush(target.get());
    return true;
}

template <class MutexPolicy>
int QvConfig<MutexPolicy>::openForWriting(const char* path) {
    return isPipeOrDirectory(path) ? -1 : ::open(path, O_WRONLY);
}

// Whether the path names something that is treated like a file that cannot be opened. Opening a
// pipe would wait for its other end, while the lock of all commands is held. A directory has a size
// on some file systems and none on others, where it would pass for an empty file.
template <class MutexPolicy>
bool QvConfig<MutexPolicy>::isPipeOrDirectory(const char* path) {
    struct stat status = {};
    return ::stat(path, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISDIR(status.st_mode));
}

}  // namespace qor::kevra

#endif  // QV_CONFIG_H
