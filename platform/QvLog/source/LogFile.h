// The file that records are appended to, with the older ones beside it. None of them grows past the
// limit by more than a record, whoever else appends to them.
//
// Each record goes to the file that stands at the path then: where it was removed, moved away or
// rotated by another handle or process, it is made anew. What is neither a regular file nor a
// character device such as /dev/null is not written to, and nothing ever waits.
//
// Not safe to use from several threads at once.
#ifndef QV_LOG_LOG_FILE_H
#define QV_LOG_LOG_FILE_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <string>

namespace qv::log {

class LogFile {
  public:
    // Throws std::system_error when the file cannot be opened.
    explicit LogFile(std::string path);
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    // The line, its newline included, goes out in one write(), so that those of several handles or
    // processes do not mix. It is lost where it cannot be written. Throws std::bad_alloc only.
    void append(std::string line);

  private:
    static constexpr off_t kNowhere = -1;

    off_t follow();
    off_t open();
    void close() noexcept;
    off_t makeRoom(std::size_t length);
    bool shiftOlderFiles() const;
    std::string olderFile(int age) const;

    const std::string path_;
    int descriptor_ = -1;
    // Of the open file.
    dev_t device_ = 0;
    ino_t inode_ = 0;
    bool endsInsideLine_ = false;
};

}  // namespace qv::log

#endif  // QV_LOG_LOG_FILE_H
