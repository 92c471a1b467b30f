// SPDX-License-Identifier: Apache-2.0

// A configuration file: a property list whose root is a dictionary. A copy of the same name is kept
// in the directory "backup" beside the file.
//
// The constructor reads the file. If the file is missing or damaged, the constructor first replaces
// it with the backup. If neither file can be read, the object stays unloaded for its whole life:
// get(), set() and save() return false, and no file is created (compatibility C12).
//
//     QvConfig<NullMutex> config("/a/b/namingService.conf.plist");
//     ServiceInfoArray services;
//     config.get(services, "Address");
//     ...
//     if (config.set(services, "Address")) {
//         config.save();
//     }
//
// save() copies the file to the backup and then rewrites the file in place. Other components read
// both files, and a process that watches the file keeps watching the same inode. A process that is
// killed in the middle of the write, or a disk that is full, leaves a file that mixes old and new
// bytes.
//
// No operation says why it failed. An operation throws only std::bad_alloc.
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

// Locks nothing. The owner of the object excludes simultaneous calls.
class QV_CAPABILITY("mutex") NullMutex {
  public:
    void lock() QV_ACQUIRE() {}
    void unlock() QV_RELEASE() {}
};

// MutexPolicy is the lock that each operation holds. Two objects on one file are not coordinated,
// and neither are two processes. save() only notices that the file was replaced or removed.
template <class MutexPolicy>
class QvConfig {
  public:
    // Reads the file at `path`. Null makes an object that stays unloaded. Throws std::length_error
    // if the path holds no "/" (compatibility C11).
    explicit QvConfig(const char* path);

    // Closes the file. Does not save.
    ~QvConfig();
    QvConfig(const QvConfig&) = delete;
    QvConfig& operator=(const QvConfig&) = delete;

    // Fills the message's `services` with the list that is stored under the key. Returns false if
    // no dictionary is stored there. A dictionary without a list leaves the message as it is. A
    // list with an element that is not a service empties the message (compatibility C22).
    template <class T>
    bool get(T& message, const char* key);

    // Replaces the value under the key in memory. Returns false and replaces nothing if the message
    // cannot be converted, for example because an address is not UTF-8.
    template <class T>
    bool set(const T& message, const char* key);

    // Copies the file to the backup and writes everything to the file. Returns true once the bytes
    // are handed to the system. Whether all of them were written, and whether they reached the
    // disk, is not checked (compatibility C18).
    bool save();

    // Copies the file over the backup, or the backup over the file.
    bool copytobackup();
    bool copyfrombackup();

  private:
    static constexpr int kMostRestores = 3;
    static constexpr const char* kListKey = "services";

    // The steps of the operations.
    bool readFile() QV_REQUIRES(mutex);
    bool backUp() QV_REQUIRES(mutex);
    bool restore() QV_REQUIRES(mutex);
    bool followFile() QV_REQUIRES(mutex);
    std::string backupFile() const QV_REQUIRES(mutex) { return backupDir + "/" + fileName; }
    static bool copyFile(const char* from, const char* to);
    static int openForWriting(const char* path);
    static bool isPipeOrDirectory(const char* path);

    // True once the file was read. Only the constructor sets it.
    bool loaded QV_GUARDED_BY(mutex) = false;
    // The file's root. Owned; null until loaded.
    CFHolder<CFMutableDictionaryRef> root QV_GUARDED_BY(mutex);
    // The descriptor through which save() writes. -1 until the first save.
    int fd QV_GUARDED_BY(mutex) = -1;
    std::string path QV_GUARDED_BY(mutex);
    std::string backupDir QV_GUARDED_BY(mutex);
    std::string fileName QV_GUARDED_BY(mutex);
    // The inode of the file when it was last seen, or 0.
    std::uint64_t inode QV_GUARDED_BY(mutex) = 0;
    MutexPolicy mutex;
};

template <class MutexPolicy>
QvConfig<MutexPolicy>::QvConfig(const char* itsPath) {
    if (itsPath == nullptr) {
        return;
    }
    const Guard<MutexPolicy> guard(mutex);
    path = itsPath;
    // Without a "/" there is no directory for the backup. assign() refuses the length -1.
    const int slash = static_cast<int>(path.find_last_of('/'));
    fileName = path.substr(static_cast<std::size_t>(slash) + 1);
    backupDir.assign(itsPath, static_cast<std::size_t>(slash));
    backupDir += "/backup";

    // The file is read three times at most and restored three times at most. The last restore is
    // not followed by a read (compatibility C13).
    for (int restores = 1; !readFile(); ++restores) {
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

// Makes one attempt to load the file.
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
    // Sizes are 32 bits wide, so 2 GiB is negative (compatibility C15).
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
    // The file is XML, but its validity is checked for the binary format. That decides which trees
    // count as damaged (compatibility C14).
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
    // The result is ignored: a value that is not a list counts like no list.
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
    // A message without elements is stored as an empty dictionary.
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
    // CFDictionaryAddValue() does not report that memory ran out.
    return CFDictionaryContainsKey(root.get(), name.get()) != FALSE;
}

template <class MutexPolicy>
bool QvConfig<MutexPolicy>::save() {
    const Guard<MutexPolicy> guard(mutex);
    if (!loaded) {
        return false;
    }
    // A backup that cannot be written does not stop the save (compatibility C16).
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
        // One call, so that a reader rarely sees a part of it. A short write is not noticed.
        ::write(fd, CFDataGetBytePtr(data.get()), static_cast<std::size_t>(length)) < 0) {
        return false;
    }
    // Both results are ignored (compatibility C18). Readers stop at the end of the first element,
    // so old bytes behind it do no harm.
    [[maybe_unused]] const int truncated = ::ftruncate(fd, length);
    ::fsync(fd);
    return true;
}

// Makes `fd` the file at `path`. Returns false if the file was never open and cannot be opened.
//
// The descriptor of a file that was replaced or removed stays open until the process ends
// (compatibility C19).
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
        // Compatibility C20.
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
        // Nobody may search the directory, so only root can use it (compatibility C17).
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

// Returns whether the path names something that counts as a file that cannot be opened. Opening a
// pipe would wait for its other end, while the lock of all commands is held. A directory has a size
// on some file systems and none on others, where it would pass for an empty file.
template <class MutexPolicy>
bool QvConfig<MutexPolicy>::isPipeOrDirectory(const char* path) {
    struct stat status = {};
    return ::stat(path, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISDIR(status.st_mode));
}

}  // namespace qor::kevra

#endif  // QV_CONFIG_H
