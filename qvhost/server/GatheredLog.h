// SPDX-License-Identifier: Apache-2.0

// Opens files for SQLite, and gathers what SQLite writes to a log. SQLite writes each page of a
// commit with two system calls and flushes the log at the end. A gathered log writes the pages of a
// commit with one call before it is flushed, or with one call for each 64 KiB of a long commit.
//
//     sqlite3_open_v2(path, &handle, flags, nameOfGatheredLogs());
//
// A write that fails is reported when the log is flushed, read or resized. What could not be
// written is dropped then, as if SQLite had not written it.
#ifndef QVHOST_SERVER_GATHERED_LOG_H
#define QVHOST_SERVER_GATHERED_LOG_H

namespace qv::host {

// Returns the name under which SQLite knows the files. The first call registers the name. Returns
// null, which stands for SQLite's own files, if there is no memory for that.
const char* nameOfGatheredLogs() noexcept;

}  // namespace qv::host

#endif  // QVHOST_SERVER_GATHERED_LOG_H
