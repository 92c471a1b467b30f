// SPDX-License-Identifier: Apache-2.0

#include "DebugLog.h"

#include <QvSystem/Utf8.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string_view>

#include "QvText.h"

namespace qv::log {
namespace {

constexpr int lowestLevel = 0;
constexpr int highestLevel = 7;
constexpr std::array<std::string_view, 8> levelNames = {"emerg",   "alert",  "crit", "err",
                                                        "warning", "notice", "info", "debug"};

constexpr std::size_t textLimit = 8192;
constexpr std::size_t moduleLimit = 64;

void appendText(std::string& record, const char* format, std::va_list arguments) {
    char buffer[textLimit];
    const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
    if (length < 0) {
        // An argument cannot be converted. The format still tells which record this is.
        text::appendEscaped(record, std::string_view(format).substr(0, textLimit));
        record += " ... (not formatted)";
        return;
    }
    const auto size = static_cast<std::size_t>(length);
    if (size < sizeof buffer) {
        text::appendEscaped(record, {buffer, size});
        return;
    }
    text::appendEscaped(record, system::wholeCharacters({buffer, sizeof buffer - 1}));
    record += " ... (" + std::to_string(size) + " bytes)";
}

}  // namespace

DebugLog::DebugLog(const char* path, const char* module, int level)
    : module_(
          text::escaped(system::wholeCharacters(std::string_view(module).substr(0, moduleLimit)))),
      level_(std::clamp(level, lowestLevel, highestLevel)),
      formatter_(std::make_unique<spdlog::pattern_formatter>("%Y-%m-%dT%H:%M:%S.%eZ %P/%t %v",
                                                             spdlog::pattern_time_type::utc, "\n")),
      file_(path) {}

DebugLog::~DebugLog() = default;

void DebugLog::setLevel(int level) noexcept {
    if (level >= lowestLevel && level <= highestLevel) {
        level_.store(level, std::memory_order_relaxed);
    }
}

void DebugLog::write(int level, const char* format, std::va_list arguments) noexcept {
    if (format == nullptr || !isEnabled(level)) {
        return;
    }
    // A caller may log between a failed call and the line that reads errno.
    const int callersErrno = errno;
    try {
        std::string record(levelNames.at(static_cast<std::size_t>(level)));
        record += ' ';
        record += module_;
        record += ": ";
        appendText(record, format, arguments);
        writeRecord(record);
    } catch (...) {
        // The record is lost. There is no other place to report that.
    }
    errno = callersErrno;
}

void DebugLog::writeRecord(const std::string& record) {
    const system::MutexLock lock(mutex_);
    // The record is formatted under the lock, so that the times in the file ascend.
    const spdlog::details::log_msg message(spdlog::source_loc{}, {}, spdlog::level::info, record);
    spdlog::memory_buf_t line;
    formatter_->format(message, line);
    file_.append({line.data(), line.size()});
}

}  // namespace qv::log
