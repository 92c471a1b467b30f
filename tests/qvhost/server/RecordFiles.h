// SPDX-License-Identifier: Apache-2.0

// A sequence of commits to a record, in which each revision has services and a note of its own. So
// a test that opens a record finds out whether exactly the commits up to its revision are in it.
#ifndef QV_TESTS_QVHOST_SERVER_RECORD_FILES_H
#define QV_TESTS_QVHOST_SERVER_RECORD_FILES_H

#include <cstdint>
#include <string>

#include "server/Record.h"

namespace qv::host {

// Makes the commit of this revision.
void commitRevision(Record& record, int64_t revision);

// Makes the commits from one revision to another.
void commitRevisions(Record& record, int64_t first, int64_t last);

// Describes the difference between what a record holds and what it should hold at its revision.
// Returns an empty text if there is none.
std::string differenceFrom(const Record::Contents& contents);

// Opens and reads the record. Describes why that fails or what is wrong, if the revision is not one
// of these or the contents are not those of the revision. Returns an empty text if all is well.
std::string problemIn(const std::string& path, int64_t least, int64_t most);

}  // namespace qv::host

#endif  // QV_TESTS_QVHOST_SERVER_RECORD_FILES_H
