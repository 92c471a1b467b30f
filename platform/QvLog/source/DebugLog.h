// One open log file: what a handle of QvLog.h stands for.
//
// Construction throws when the file cannot be opened; nothing else throws. All members may be
// called from several threads at once.
#ifndef QV_LOG_DEBUG_LOG_H
#define QV_LOG_DEBUG_LOG_H

#include <spdlog/sinks/rotating_file_sink.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

namespace qv::log {

class DebugLog {
  public:
    // A level outside 0 to 7 means the nearest of them.
    DebugLog(const char* path, const char* module, int level);
    ~DebugLog() = default;

    DebugLog(const DebugLog&) = delete;
    DebugLog& operator=(const DebugLog&) = delete;
    DebugLog(DebugLog&&) = delete;
    DebugLog& operator=(DebugLog&&) = delete;

    bool isEnabled(int level) const noexcept {
        return level >= 0 && level <= level_.load(std::memory_order_relaxed);
    }

    // Ignores a level outside 0 to 7.
    void setLevel(int level) noexcept;

    void write(int level, const char* format, std::va_list arguments) noexcept;

  private:
    void openSink();
    void writeRecord(const std::string& record);

    const std::string path_;
    const std::string module_;
    std::atomic<int> level_;

    std::mutex mutex_;

    // Holds the longest record, so that each goes out in one write() and records of two handles on
    // one file, or of two processes, do not mix.
    std::array<char, 40960> buffer_{};

    std::FILE* file_ = nullptr;  // the sink's, null while it has none
    bool mayEndInsideLine_ = false;

    // Not the _mt kind: the sink is replaced under the same lock that it is used under.
    std::unique_ptr<spdlog::sinks::rotating_file_sink_st> sink_;
};

}  // namespace qv::log

#endif  // QV_LOG_DEBUG_LOG_H
