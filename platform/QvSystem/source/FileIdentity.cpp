// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/FileIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>
#ifdef __linux__
#include <sys/sysmacros.h>
#endif

namespace qv::system {

namespace {

#ifdef __linux__

// Asks for the identity alone. Returns no file if there is none, or if a sandbox that is older than
// the call forbids it.
FileIdentity identityAlone(int directory, const char* path, int flags) noexcept {
    struct statx status = {};
    if (::statx(directory, path, flags, STATX_INO, &status) != 0) {
        return {};
    }
    return {makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino};
}

#endif

FileIdentity identityIn(int result, const struct stat& status) noexcept {
    if (result != 0) {
        return {};
    }
    return {static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino)};
}

}  // namespace

FileIdentity identityOf(const char* path) noexcept {
#ifdef __linux__
    if (const FileIdentity identity = identityAlone(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW)) {
        return identity;
    }
#endif
    struct stat status = {};
    const int result = ::lstat(path, &status);
    return identityIn(result, status);
}

FileIdentity identityOf(int descriptor) noexcept {
#ifdef __linux__
    if (const FileIdentity identity = identityAlone(descriptor, "", AT_EMPTY_PATH)) {
        return identity;
    }
#endif
    struct stat status = {};
    const int result = ::fstat(descriptor, &status);
    return identityIn(result, status);
}

}  // namespace qv::system
