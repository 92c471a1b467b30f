// SPDX-License-Identifier: Apache-2.0

// Records what happens to the files of directories, in order.
//
//     FileEvents events({{directory, ""}});
//     ... load ...
//     EXPECT_THAT(events.take(), ElementsAre("read conf.plist", ...));
#ifndef QV_TESTS_FILE_EVENTS_H
#define QV_TESTS_FILE_EVENTS_H

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <map>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace qv::tests {

class FileEvents {
  public:
    // Watches the files of each directory. The second string of a pair is put in front of the names
    // of its files.
    explicit FileEvents(const std::vector<std::pair<std::string, std::string>>& directories)
        : descriptor_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        for (const auto& [directory, prefix] : directories) {
            const int watch = ::inotify_add_watch(descriptor_, directory.c_str(),
                                                  IN_CLOSE_NOWRITE | IN_CLOSE_WRITE | IN_MODIFY);
            if (watch < 0) {
                throw std::system_error(errno, std::generic_category(), directory);
            }
            prefixes_[watch] = prefix;
        }
    }
    ~FileEvents() { ::close(descriptor_); }
    FileEvents(const FileEvents&) = delete;
    FileEvents& operator=(const FileEvents&) = delete;

    // Returns the events since the last call: "change NAME" for one or several changes in a row,
    // "read NAME" when a file that was open for reading is closed, and "written NAME" when a file
    // that was open for writing is closed. Leaves out directories.
    std::vector<std::string> take() {
        std::vector<std::string> events;
        alignas(inotify_event) char buffer[1 << 16];
        for (ssize_t size = 0; (size = ::read(descriptor_, buffer, sizeof buffer)) > 0;) {
            for (ssize_t position = 0; position < size;) {
                inotify_event event{};
                std::memcpy(&event, buffer + position, sizeof event);
                const char* const name = buffer + position + sizeof event;
                position += static_cast<ssize_t>(sizeof event + event.len);
                if ((event.mask & IN_ISDIR) != 0 || event.len == 0) {
                    continue;
                }
                const std::string text = verb(event.mask) + prefixes_[event.wd] + name;
                if (events.empty() || event.mask != IN_MODIFY || events.back() != text) {
                    events.push_back(text);
                }
            }
        }
        return events;
    }

  private:
    static std::string verb(unsigned mask) {
        if ((mask & IN_MODIFY) != 0) {
            return "change ";
        }
        return (mask & IN_CLOSE_WRITE) != 0 ? "written " : "read ";
    }

    int descriptor_;
    std::map<int, std::string> prefixes_;
};

}  // namespace qv::tests

#endif  // QV_TESTS_FILE_EVENTS_H
