#include "LineReader.h"

#include <fmt/format.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "ScriptError.h"

namespace qv::host {

namespace {

constexpr char kByteOrderMark[] = "\xef\xbb\xbf";

std::system_error readError(const std::string& name) {
    return {errno, std::generic_category(), "cannot read the script " + name};
}

}  // namespace

void LineReader::Closer::operator()(std::FILE* file) const {
    if (file != stdin) {
        // Nothing was written, so nothing can be lost.
        static_cast<void>(std::fclose(file));
    }
}

LineReader::LineReader(std::FILE* file, std::string name) : file_(file), name_(std::move(name)) {}

LineReader LineReader::openFile(const std::string& path) {
    std::FILE* const file = std::fopen(path.c_str(), "re");
    if (file == nullptr) {
        throw readError(path);
    }
    return {file, path};
}

LineReader LineReader::standardInput() {
    return {stdin, "<stdin>"};
}

bool LineReader::next(std::string& line) {
    line.clear();
    int c = getc_unlocked(file_.get());
    if (c != EOF) {
        ++lineNumber_;
    }
    while (c != EOF && c != '\n') {
        if (line.size() == kLongestLine) {
            throw ScriptError(
                fmt::format("{}: the line is longer than {} bytes", place(), kLongestLine));
        }
        line.push_back(static_cast<char>(c));
        c = getc_unlocked(file_.get());
    }
    if (c == EOF && std::ferror(file_.get()) != 0) {
        throw readError(name_);
    }
    if (lineNumber_ == 1 && line.compare(0, 3, kByteOrderMark) == 0) {
        line.erase(0, 3);
        return true;
    }
    return c != EOF || !line.empty();
}

std::string LineReader::place() const {
    return fmt::format("{}:{}", name_, lineNumber_);
}

}  // namespace qv::host
