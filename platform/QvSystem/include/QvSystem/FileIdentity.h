// SPDX-License-Identifier: Apache-2.0

// Tells one file from another, whatever they hold and whatever their names are.
//
//     const FileIdentity before = identityOf(path);
//     ...
//     if (identityOf(path) != before) {
//         // somebody removed or replaced the file
//     }
#ifndef QV_SYSTEM_FILE_IDENTITY_H
#define QV_SYSTEM_FILE_IDENTITY_H

#include <cstdint>

namespace qv::system {

struct FileIdentity {
    uint64_t device = 0;
    uint64_t number = 0;  // of the inode; 0 stands for no file

    // Tells whether there is a file.
    explicit operator bool() const { return number != 0; }

    friend bool operator==(const FileIdentity& one, const FileIdentity& other) {
        return one.device == other.device && one.number == other.number;
    }
    friend bool operator!=(const FileIdentity& one, const FileIdentity& other) {
        return !(one == other);
    }
};

// Returns the identity of the file at a path, which may be a symbolic link, or of an open file. If
// there is none, or if the system does not tell, returns an identity that is false and sets errno.
//
// On Linux the functions do not ask for the times of the file, as lstat() does. Since Linux 6.13
// some file systems give the next write after such a question a time of its own, and the next flush
// then has to write the inode as well. A caller that looks at a log between two flushes would pay
// for that.
FileIdentity identityOf(const char* path) noexcept;
FileIdentity identityOf(int descriptor) noexcept;

}  // namespace qv::system

#endif  // QV_SYSTEM_FILE_IDENTITY_H
