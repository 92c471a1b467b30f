// SPDX-License-Identifier: Apache-2.0

#include "qvhost/ServiceFileLanguage.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "qvhost/Identifiers.h"

namespace qv::fuzz {
namespace {

using Json = nlohmann::json;

std::size_t newlinesIn(std::string_view text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

// Returns the text up to the first such character outside quotation marks, or all of the text.
std::string_view partOf(std::string_view text, char end) {
    bool isQuoted = false;
    for (std::size_t index = 0; index < text.size(); ++index) {
        isQuoted ^= text[index] == '"';
        if (text[index] == end && !isQuoted) {
            return text.substr(0, index);
        }
    }
    return text;
}

struct Field {
    std::string text;
    std::optional<std::size_t> wrongAt;
};

Field fieldOf(std::string_view written) {
    if (written.substr(0, 1) != "\"") {
        const std::size_t wrongAt = written.find_first_of("\"\r");
        return wrongAt == std::string_view::npos ? Field{std::string(written), {}}
                                                 : Field{"", wrongAt};
    }
    Field field;
    std::size_t index = 1;
    while (written.substr(index, 1) != "\"" || written.substr(index, 2) == "\"\"") {
        if (index >= written.size()) {
            return {"", 0};
        }
        field.text += written[index];
        index += written[index] == '"' ? 2 : 1;
    }
    if (index + 1 < written.size()) {
        field.wrongAt = index + 1;
    }
    return field;
}

// Reads fields up to the first mistake.
std::vector<Field> fieldsOf(std::string_view record) {
    std::vector<Field> fields;
    for (std::size_t begin = 0; begin <= record.size();) {
        const std::string_view written = partOf(record.substr(begin), ',');
        fields.push_back(fieldOf(written));
        if (fields.back().wrongAt) {
            *fields.back().wrongAt += begin;
            break;
        }
        begin += written.size() + 1;
    }
    return fields;
}

std::optional<host::Service> serviceOf(const std::vector<Field>& fields) {
    if (fields.size() != 2) {
        return std::nullopt;
    }
    const std::optional<std::int32_t> id = numberOf(fields[0].text);
    const std::string& address = fields[1].text;
    if (!id || !isAddress(address)) {
        return std::nullopt;
    }
    return host::Service{*id, address};
}

bool isIdentifier(const Json& value) {
    return value.is_number_unsigned()
               ? value.get<std::uint64_t>() <= std::numeric_limits<std::int32_t>::max()
               : value.is_number_integer() &&
                     value.get<std::int64_t>() >= std::numeric_limits<std::int32_t>::min();
}

}  // namespace

CsvList listOfCsv(std::string_view text) {
    CsvList list;
    std::set<std::int32_t> ids;
    bool hasHeader = false;
    std::size_t line = 1;
    while (!text.empty()) {
        std::string_view record = partOf(text, '\n');
        const std::string_view rest = text.substr(std::min(record.size() + 1, text.size()));
        const std::size_t nextLine = line + newlinesIn(text) - newlinesIn(rest);
        const bool hasEnd = record.size() < text.size();
        if (hasEnd && !record.empty() && record.back() == '\r') {
            record.remove_suffix(1);
        }
        if (!record.empty()) {
            const std::vector<Field> fields = fieldsOf(record);
            if (fields.back().wrongAt) {
                list.wrongLines.push_back(line +
                                          newlinesIn(record.substr(0, *fields.back().wrongAt)));
                return list;
            }
            if (!hasHeader) {
                if (fields.size() != 2 || fields[0].text != "id" || fields[1].text != "address") {
                    list.wrongLines.push_back(line);
                    return list;
                }
                hasHeader = true;
            } else if (auto service = serviceOf(fields);
                       service && ids.insert(service->id).second) {
                list.services.push_back(*service);
            } else {
                list.wrongLines.push_back(line);
            }
        }
        text = rest;
        line = nextLine;
    }
    if (!hasHeader) {
        list.wrongLines.push_back(1);
    }
    return list;
}

std::optional<JsonList> listOfJson(std::string_view text) {
    std::size_t keys = 0;
    const auto count = [&](int /*depth*/, Json::parse_event_t event, const Json& /*parsed*/) {
        keys += event == Json::parse_event_t::key ? 1 : 0;
        return true;
    };
    const Json json = Json::parse(text, count, false);
    if (!json.is_array()) {
        return std::nullopt;
    }
    JsonList list;
    std::set<std::int32_t> ids;
    for (const Json& element : json) {
        if (!element.is_object()) {
            return std::nullopt;
        }
        std::size_t wrongValues = 0;
        for (const auto& [key, value] : element.items()) {
            if ((key != "id" && key != "address") || value.is_structured()) {
                return std::nullopt;
            }
            wrongValues += (key == "id" ? !isIdentifier(value) : !value.is_string()) ? 1 : 0;
            --keys;
        }
        if (wrongValues > 0) {
            list.problems += wrongValues;
        } else if (element.size() == 2 &&
                   isAddress(element["address"].get_ref<const std::string&>()) &&
                   ids.insert(element["id"].get<std::int32_t>()).second) {
            list.services.push_back({element["id"], element["address"]});
        } else {
            ++list.problems;
        }
    }
    // If a key occurs twice, the tree has the last value.
    return keys == 0 ? std::optional(list) : std::nullopt;
}

bool isWellFormedUtf8(std::string_view text) {
    while (!text.empty()) {
        const auto lead = static_cast<unsigned char>(text[0]);
        const std::size_t size = lead < 0x80   ? 1
                                 : lead < 0xC0 ? 0
                                 : lead < 0xE0 ? 2
                                 : lead < 0xF0 ? 3
                                               : 4;
        if (size == 0 || lead > 0xF7 || size > text.size()) {
            return false;
        }
        std::uint32_t point = size == 1 ? lead : lead & (0x7FU >> size);
        for (std::size_t index = 1; index < size; ++index) {
            const auto byte = static_cast<unsigned char>(text[index]);
            if ((byte & 0xC0U) != 0x80) {
                return false;
            }
            point = point << 6 | (byte & 0x3FU);
        }
        constexpr std::uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
        if (point < kLeast[size] || point > 0x10FFFF || (point >= 0xD800 && point < 0xE000)) {
            return false;
        }
        text.remove_prefix(size);
    }
    return true;
}

bool isAddress(std::string_view text) {
    constexpr std::size_t kLongest = 4096;
    return !text.empty() && text.size() <= kLongest && isWellFormedUtf8(text) &&
           text.find('\0') == std::string_view::npos && text.rfind("\xef\xbb\xbf", 0) != 0;
}

}  // namespace qv::fuzz
