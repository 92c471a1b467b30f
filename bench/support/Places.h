// Directories to measure files in, of the program's own and gone with the objects.
#ifndef QV_BENCH_PLACES_H
#define QV_BENCH_PLACES_H

#include <string>

namespace qv::bench {

class Place {
  public:
    enum class Kind { Memory, Disk };

    // Memory: in /dev/shm, or in TMPDIR or /tmp, where one is in memory. Disk: in TMPDIR, /tmp,
    // /var/tmp or the current directory, the first that is not. Ends the program when there is
    // none.
    explicit Place(Kind kind);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    // The path of a file or directory in it.
    std::string path(const std::string& name) const { return path_ + '/' + name; }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_PLACES_H
