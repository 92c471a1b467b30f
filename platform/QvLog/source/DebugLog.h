// SPDX-License-Identifier: Apache-2.0

// One open log, which is what a handle of QvLog.h points to.
//
// Construction throws if the file cannot be opened; nothing else throws. All members may be called
// from several threads at once.
#ifndef QV_LOG_DEBUG_LOG_H
#define QV_LOG_DEBUG_LOG_H

#include <spdlog/formatter.h>

#include <atomic>
#include <cstdarg>
#include <memory>
#include <string>

#include "LogFile.h"
#include "QvSystem/ThreadSafety.h"

namespace qv::log {

class DebugLog {
  public:
    // Opens the file at `path`. A level outside 0 to 7 becomes the nearest valid level.
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

    // Writes one record if its level is enabled. A record that cannot be written is lost.
    void write(int level, const char* format, std::va_list arguments) noexcept;

  private:
    void writeRecord(const std::string& record);

    const std::string module_;
    std::atomic<int> level_;

    system::Mutex mutex_;
    const std::unique_ptr<spdlog::formatter> formatter_ QV_GUARDED_BY(mutex_);
    LogFile file_ QV_GUARDED_BY(mutex_);
};

}  // namespace qv::log

#endif  // QV_LOG_DEBUG_LOG_H
