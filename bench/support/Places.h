// SPDX-License-Identifier: Apache-2.0

// Makes directories for files in memory or on a disk, and removes them when the objects end.
#ifndef QV_BENCH_PLACES_H
#define QV_BENCH_PLACES_H

#include <string>

namespace qv::bench {

class Place {
  public:
    enum class Kind { Memory, Disk };

    // Makes the directory in the first suitable place. For Memory, this is the first of /dev/shm,
    // TMPDIR and /tmp that is in memory. For Disk, it is the first of TMPDIR, /tmp, /var/tmp and
    // the current directory that is not in memory. Ends the program if there is none.
    explicit Place(Kind kind);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    // Returns the path of a file or directory in it.
    std::string path(const std::string& name) const { return path_ + '/' + name; }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_PLACES_H
