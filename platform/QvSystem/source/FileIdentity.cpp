// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/FileIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace qv::system {

#ifdef __linux__

namespace {

FileIdentity identityAt(int directory, const char* path, int flags) noexcept {
    struct statx status = {};
    if (::statx(directory, path, flags, STATX_INO, &status) != 0) {
        return {};
    }
    return {uint64_t{status.stx_dev_major} << 32 | status.stx_dev_minor, status.stx_ino};
}

}  // namespace

FileIdentity identityOf(const char* path) noexcept {
    return identityAt(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW);
}

FileIdentity identityOf(int descriptor) noexcept {
    return identityAt(descriptor, "", AT_EMPTY_PATH);
}

#else

namespace {

FileIdentity identityIn(int result, const struct stat& status) noexcept {
    if (result != 0) {
        return {};
    }
    return {static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino)};
}

}  // namespace

FileIdentity identityOf(const char* path) noexcept {
    struct stat status = {};
    return identityIn(::lstat(path, &status), status);
}

FileIdentity identityOf(int descriptor) noexcept {
    struct stat status = {};
    return identityIn(::fstat(descriptor, &status), status);
}

#endif

}  // namespace qv::system
