// SPDX-License-Identifier: Apache-2.0

// The log file that records are appended to, and its older files. No file grows past the limit by
// more than one record, even if other processes append to it.
//
// Each record goes to the file that is at the path at that moment. If the file was removed, moved
// away or rotated by another handle or process, the next record creates it anew. Only a regular
// file and a character device such as /dev/null are written to. No operation waits.
//
// Not safe to use from several threads at once.
#ifndef QV_LOG_LOG_FILE_H
#define QV_LOG_LOG_FILE_H

#include <QvSystem/Descriptor.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <string>

namespace qv::log {

class LogFile {
  public:
    // Throws std::system_error when the file cannot be opened.
    explicit LogFile(std::string path);

    // Appends the line, which ends with a newline, in one write(), so that the lines of several
    // handles or processes do not mix. A line that cannot be written is lost. Throws
    // std::bad_alloc.
    void append(std::string line);

  private:
    static constexpr off_t kNowhere = -1;

    off_t follow();
    off_t open();
    off_t makeRoom(std::size_t length);
    bool shiftOlderFiles() const;
    std::string olderFile(int age) const;

    const std::string path_;
    system::Descriptor descriptor_;
    // The identity of the open file.
    dev_t device_ = 0;
    ino_t inode_ = 0;
    bool endsInsideLine_ = false;
};

}  // namespace qv::log

#endif  // QV_LOG_LOG_FILE_H
