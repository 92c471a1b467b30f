// SPDX-License-Identifier: Apache-2.0

#include "cli/ServiceFile.h"

#include <QvSystem/Descriptor.h>
#include <QvSystem/Files.h>
#include <QvSystem/Utf8.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "ServiceAddress.h"
#include "cli/CsvReader.h"
#include "cli/InputError.h"
#include "cli/Numbers.h"
#include "cli/Quotation.h"

namespace qv::host {

namespace {

using JsonValue = nlohmann::json;

// The number of mistakes that are told. A file that is no list at all has many more.
constexpr std::size_t kMostProblems = 10;

// Far more than any directory of services. Reading a device ends here, before memory runs out.
constexpr std::size_t kLongestFile = std::size_t{1} << 28;

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

// Collects services and mistakes of either format.
class Collector {
  public:
    explicit Collector(std::string name) : name_(std::move(name)) {}

    void add(int32_t id, std::string address, std::size_t line) {
        if (const char* const wrong = problemOfAddress(address)) {
            problem(line, fmt::format("the address {}", wrong));
            return;
        }
        const auto [place, isNew] = lines_.emplace(id, line);
        if (!isNew) {
            problem(line,
                    fmt::format("identifier {} occurs twice, first in line {}", id, place->second));
            return;
        }
        read_.services.push_back({id, std::move(address)});
    }

    void problem(std::size_t line, const std::string& text) {
        if (read_.problems.size() < kMostProblems) {
            read_.problems.push_back(fmt::format("{}:{}: {}", name_, line, text));
        } else if (read_.problems.size() == kMostProblems) {
            read_.problems.push_back(fmt::format("{}:{}: more is wrong from here on", name_, line));
        }
    }

    ReadServices read() { return std::move(read_); }

  private:
    std::string name_;
    std::unordered_map<int32_t, std::size_t> lines_;
    ReadServices read_;
};

void addRecord(CsvReader::Record& record, Collector& collector) {
    if (record.count != 2) {
        collector.problem(record.line,
                          fmt::format("a line has an identifier and an address, but this one has "
                                      "{} field{}",
                                      record.count, record.count == 1 ? "" : "s"));
        return;
    }
    try {
        collector.add(parseIdentifier(record.fields[0]), std::move(record.fields[1]), record.line);
    } catch (const InputError& error) {
        collector.problem(record.line, error.what());
    }
}

void readCsv(std::string_view text, Collector& collector) {
    CsvReader reader(text);
    CsvReader::Record record;
    try {
        record.line = 1;
        if (!reader.next(record) || record.fields != std::vector<std::string>{"id", "address"}) {
            collector.problem(record.line, "the first line must be id,address");
            return;
        }
        while (reader.next(record)) {
            addRecord(record, collector);
        }
    } catch (const CsvReader::Error& error) {
        collector.problem(error.line(), error.what());
    }
}

// Tells how far the JSON library has read. The library itself tells only with errors.
class WatchedIterator {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    WatchedIterator(const char* place, const char** farthest)
        : place_(place), farthest_(farthest) {}

    reference operator*() const { return *place_; }
    WatchedIterator& operator++() {
        *farthest_ = ++place_;
        return *this;
    }
    WatchedIterator operator++(int) {
        WatchedIterator before = *this;
        ++*this;
        return before;
    }
    bool operator==(const WatchedIterator& other) const { return place_ == other.place_; }
    bool operator!=(const WatchedIterator& other) const { return place_ != other.place_; }

  private:
    const char* place_;
    const char** farthest_;
};

// Takes the one form of a list: an array of objects, each with an id and an address.
class JsonHandler : public nlohmann::json_sax<JsonValue> {
  public:
    JsonHandler(std::string_view text, Collector& collector)
        : counted_(text.data()),
          farthest_(text.data()),
          end_(text.data() + text.size()),
          collector_(collector) {}

    const char** farthest() { return &farthest_; }

    bool null() override { return value("null"); }
    bool boolean(bool) override { return value("a boolean"); }
    bool number_float(double, const std::string&) override {
        return value(place_ == Place::Id ? "no whole number of 32 bits" : "a number");
    }
    bool number_integer(std::int64_t number) override { return identifier(number); }
    bool number_unsigned(std::uint64_t number) override {
        return identifier(number > std::numeric_limits<int32_t>::max()
                              ? std::numeric_limits<std::int64_t>::max()
                              : static_cast<std::int64_t>(number));
    }
    bool string(std::string& text) override {
        if (place_ == Place::Address) {
            address_ = std::move(text);
            place_ = Place::Object;
            return true;
        }
        return value("a string");
    }
    bool binary(binary_t&) override { return value("binary"); }

    bool start_array(std::size_t) override {
        if (place_ != Place::Start) {
            return misplaced("an array");
        }
        place_ = Place::Array;
        return true;
    }
    bool end_array() override {
        place_ = Place::End;
        return true;
    }
    bool start_object(std::size_t) override {
        if (place_ != Place::Array) {
            return misplaced("an object");
        }
        place_ = Place::Object;
        objectLine_ = line();
        isWrong_ = false;
        id_.reset();
        address_.reset();
        return true;
    }
    bool key(std::string& name) override {
        if (name == "id" && !id_) {
            place_ = Place::Id;
        } else if (name == "address" && !address_) {
            place_ = Place::Address;
        } else {
            collector_.problem(
                line(),
                name == "id" || name == "address"
                    ? fmt::format("there is a second {}", quotation(name))
                    : fmt::format("unknown key {}; a service has id and address", quotation(name)));
            return false;
        }
        return true;
    }
    bool end_object() override {
        place_ = Place::Array;
        if (isWrong_) {
            return true;
        }
        if (!id_ || !address_) {
            collector_.problem(objectLine_,
                               fmt::format("the service has no {}", !id_ ? "id" : "address"));
        } else {
            collector_.add(*id_, std::move(*address_), objectLine_);
        }
        return true;
    }

    bool parse_error(std::size_t, const std::string& token,
                     const nlohmann::detail::exception& error) override {
        constexpr int kNumberOverflow = 406;
        if (error.id == kNumberOverflow) {
            number_float(std::numeric_limits<double>::infinity(), token);
            return false;
        }
        // The library names itself and the place before the mistake.
        const std::string text = withWholeCharacter(error.what(), token);
        const std::size_t start = text.find("syntax error");
        constexpr std::size_t kLongest = 160;
        collector_.problem(
            line(), shortened(start == std::string::npos ? text : text.substr(start), kLongest));
        return false;
    }

  private:
    enum class Place { Start, Array, Object, Id, Address, End };

    // Returns the line of the last token. The library may have read one character more.
    std::size_t line() {
        while (counted_ + 1 < farthest_) {
            line_ += *counted_++ == '\n' ? 1 : 0;
        }
        return line_;
    }

    bool identifier(std::int64_t number) {
        if (place_ != Place::Id) {
            return value("a number");
        }
        if (number < std::numeric_limits<int32_t>::min() ||
            number > std::numeric_limits<int32_t>::max()) {
            return value("out of range (-2147483648 to 2147483647)");
        }
        id_ = static_cast<int32_t>(number);
        place_ = Place::Object;
        return true;
    }

    // Adds the rest of a character to the text. The library stops at the first byte that it does
    // not expect. That byte and those before it in the token may only begin a character.
    std::string withWholeCharacter(std::string text, const std::string& token) const {
        const std::size_t place = text.rfind(token);
        const std::size_t begun = token.size() - system::wholeCharacters(token).size();
        if (place == std::string::npos || begun == 0) {
            return text;
        }
        const char* const begin = farthest_ - begun;
        const system::Utf8Character character =
            system::firstCharacter({begin, static_cast<std::size_t>(end_ - begin)});
        if (character.length > begun) {
            text.insert(place + token.size(), farthest_, character.length - begun);
        }
        return text;
    }

    // Tells of a value of another type than its place asks for.
    bool value(const std::string& what) {
        if (place_ != Place::Id && place_ != Place::Address) {
            return misplaced(what);
        }
        collector_.problem(line(), place_ == Place::Id
                                       ? "the id must be a number, and is " + what
                                       : "the address must be a string, and is " + what);
        isWrong_ = true;
        place_ = Place::Object;
        return true;
    }

    bool misplaced(const std::string& what) {
        const char* const wanted = place_ == Place::Start   ? "an array of services"
                                   : place_ == Place::Array ? "an object with id and address"
                                   : place_ == Place::Id    ? "a number"
                                                            : "a string";
        collector_.problem(line(), fmt::format("here must be {}, not {}", wanted, what));
        return false;
    }

    const char* counted_;
    const char* farthest_;
    const char* end_;
    std::size_t line_ = 1;
    Collector& collector_;
    Place place_ = Place::Start;
    std::size_t objectLine_ = 0;
    bool isWrong_ = false;
    std::optional<int32_t> id_;
    std::optional<std::string> address_;
};

void readJson(std::string_view text, Collector& collector) {
    JsonHandler handler(text, collector);
    const char* const end = text.data() + text.size();
    JsonValue::sax_parse(WatchedIterator(text.data(), handler.farthest()),
                         WatchedIterator(end, handler.farthest()), &handler);
}

bool looksLikeJson(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && (text[first] == '[' || text[first] == '{');
}

std::string readWhole(int descriptor, const std::string& name) {
    std::string text;
    if (const std::error_code error = system::readAll(descriptor, kLongestFile, text)) {
        throw std::system_error(error, "cannot read " + name);
    }
    return text;
}

}  // namespace

ReadServices readServices(const std::string& text, const std::string& name,
                          std::optional<Format> format) {
    std::string_view content = text;
    if (content.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        content.remove_prefix(kByteOrderMark.size());
    }
    Collector collector(name);
    if (format ? *format == Format::Json : looksLikeJson(content)) {
        readJson(text, collector);  // The JSON library skips the mark itself.
    } else {
        readCsv(content, collector);
    }
    return collector.read();
}

std::string readWholeFile(const std::string& path) {
    const system::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file) {
        throw std::system_error(errno, std::generic_category(), "cannot read " + path);
    }
    return readWhole(file.get(), path);
}

std::string readWholeStandardInput() {
    return readWhole(STDIN_FILENO, "standard input");
}

}  // namespace qv::host
