// One open log file: what a handle of QvLog.h stands for.
//
// Construction throws when the file cannot be opened; nothing else throws. All members may be
// called from several threads at once.
#ifndef QV_LOG_DEBUG_LOG_H
#define QV_LOG_DEBUG_LOG_H

#include <spdlog/formatter.h>

#include <atomic>
#include <cstdarg>
#include <memory>
#include <mutex>
#include <string>

#include "LogFile.h"

namespace qv::log {

class DebugLog {
  public:
    // A level outside 0 to 7 means the nearest of them.
    DebugLog(const char* path, const char* module, int level);
    ~DebugLog();

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
    void writeRecord(const std::string& record);

    const std::string module_;
    std::atomic<int> level_;

    std::mutex mutex_;
    // Both guarded by `mutex_`.
    const std::unique_ptr<spdlog::formatter> formatter_;
    LogFile file_;
};

}  // namespace qv::log

#endif  // QV_LOG_DEBUG_LOG_H
