// Reads a script line by line and counts the lines, from a file or from standard input:
//
//     LineReader reader = LineReader::openFile("services.txt");
//     std::string line;
//     while (reader.next(line)) {
//         ... reader.place() is "services.txt:1" ...
//     }
//
// From a pipe or a terminal a line is returned as soon as it is complete. The last line needs no
// newline, and a UTF-8 byte order mark at the beginning is not part of the text.
#ifndef QVHOST_LINE_READER_H
#define QVHOST_LINE_READER_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace qv::host {

class LineReader {
  public:
    // Far beyond any address; a file without newlines, such as a device, ends here and not in
    // exhausted memory.
    static constexpr std::size_t kLongestLine = std::size_t{16} << 20;

    // Throws std::system_error when the file cannot be opened.
    static LineReader openFile(const std::string& path);

    static LineReader standardInput();

    // Stores the next line without its newline; false at the end. Throws std::system_error when
    // reading fails, and ScriptError for a line longer than kLongestLine; the reader is then of no
    // more use.
    bool next(std::string& line);

    // Where the line that next() gave last stands.
    std::string place() const;

  private:
    struct Closer {
        void operator()(std::FILE* file) const;
    };

    LineReader(std::FILE* file, std::string name);

    std::unique_ptr<std::FILE, Closer> file_;
    std::string name_;
    uint64_t lineNumber_ = 0;
};

}  // namespace qv::host

#endif  // QVHOST_LINE_READER_H
