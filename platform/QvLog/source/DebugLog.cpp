#include "DebugLog.h"

#include <fcntl.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <system_error>

#include "QvText.h"

namespace qv::log {
namespace {

constexpr int lowestLevel = 0;
constexpr int highestLevel = 7;
constexpr std::array<std::string_view, 8> levelNames = {"emerg",   "alert",  "crit", "err",
                                                        "warning", "notice", "info", "debug"};

constexpr std::size_t maximalFileSize = 10UL * 1024 * 1024;
constexpr std::size_t olderFiles = 5;
constexpr std::size_t textLimit = 8192;
constexpr mode_t fileMode = 0640;

// The sink itself would make the file readable by all, and make a missing directory.
void createFile(const std::string& path) {
    const int descriptor =
        ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, fileMode);
    if (descriptor == -1) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    ::close(descriptor);
}

// A disk that was full, or a machine that went down, leaves half a record.
bool endsInsideLine(const std::string& path, std::FILE* file) {
    struct stat status = {};
    if (::fstat(::fileno(file), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0) {
        return false;
    }
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor == -1) {
        return false;
    }
    char last = '\n';
    const bool read = ::pread(descriptor, &last, 1, status.st_size - 1) == 1;
    ::close(descriptor);
    return read && last != '\n';
}

// Without the bytes at the end that only begin a UTF-8 sequence.
std::string_view wholeCharacters(std::string_view text) {
    const std::size_t longest = std::min<std::size_t>(text.size(), 3);
    for (std::size_t count = 1; count <= longest; ++count) {
        const auto byte = static_cast<unsigned char>(text[text.size() - count]);
        if (byte >= 0xC0) {
            const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
            return length > count ? text.substr(0, text.size() - count) : text;
        }
        if (byte < 0x80) {
            break;
        }
    }
    return text;
}

void appendText(std::string& record, const char* format, std::va_list arguments) {
    char buffer[textLimit];
    const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
    if (length < 0) {
        // An argument that cannot be converted. The format still tells which record this was.
        text::appendEscaped(record, std::string_view(format).substr(0, textLimit));
        record += " ... (not formatted)";
        return;
    }
    const auto size = static_cast<std::size_t>(length);
    if (size < sizeof buffer) {
        text::appendEscaped(record, {buffer, size});
        return;
    }
    text::appendEscaped(record, wholeCharacters({buffer, sizeof buffer - 1}));
    record += " ... (" + std::to_string(size) + " bytes)";
}

}  // namespace

DebugLog::DebugLog(const char* path, const char* module, int level)
    : path_(path),
      module_(text::escaped(module)),
      level_(std::clamp(level, lowestLevel, highestLevel)) {
    openSink();
}

void DebugLog::setLevel(int level) noexcept {
    if (level >= lowestLevel && level <= highestLevel) {
        level_.store(level, std::memory_order_relaxed);
    }
}

void DebugLog::write(int level, const char* format, std::va_list arguments) noexcept {
    if (format == nullptr || !isEnabled(level)) {
        return;
    }
    // A caller may log between a failed call and its look at errno.
    const int callersErrno = errno;
    try {
        std::string record(levelNames.at(static_cast<std::size_t>(level)));
        record += ' ';
        record += module_;
        record += ": ";
        appendText(record, format, arguments);
        writeRecord(record);
    } catch (...) {
        // A log that cannot be written costs records, and there is nowhere else to tell of it.
    }
    errno = callersErrno;
}

void DebugLog::openSink() {
    spdlog::file_event_handlers handlers;
    handlers.before_open = createFile;
    handlers.after_open = [this](const std::string&, std::FILE* file) {
        std::setvbuf(file, buffer_.data(), _IOFBF, buffer_.size());
        file_ = file;
        mayEndInsideLine_ = true;
    };
    handlers.before_close = [this](const std::string&, std::FILE*) { file_ = nullptr; };

    sink_ = std::make_unique<spdlog::sinks::rotating_file_sink_st>(path_, maximalFileSize,
                                                                   olderFiles, false, handlers);
    sink_->set_formatter(std::make_unique<spdlog::pattern_formatter>(
        "%Y-%m-%dT%H:%M:%S.%eZ %P/%t %v", spdlog::pattern_time_type::utc, "\n"));
}

void DebugLog::writeRecord(const std::string& record) {
    const std::lock_guard<std::mutex> lock(mutex_);
    // A rotation that fails, in a directory that is gone, leaves the sink without a file, and it
    // must not be used then. A fresh one goes on as soon as the file can be opened again.
    if (file_ == nullptr) {
        openSink();
    }
    if (mayEndInsideLine_ && endsInsideLine(path_, file_)) {
        std::fputc('\n', file_);
    }
    mayEndInsideLine_ = true;
    // Under the lock, so that the times in the file ascend.
    const spdlog::details::log_msg message(spdlog::source_loc{}, {}, spdlog::level::info, record);
    sink_->log(message);
    sink_->flush();
    mayEndInsideLine_ = false;
}

}  // namespace qv::log
