// SPDX-License-Identifier: Apache-2.0

#include "cli/Output.h"

#include <QvSystem/Utf8.h>
#include <QvText.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>

#include "cli/JsonLine.h"

namespace qv::host {

namespace {

using Json = nlohmann::ordered_json;

std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string field = "\"";
    for (const char c : text) {
        field.append(c == '"' ? 2 : 1, c);
    }
    return field + '"';
}

std::string commandCode(uint32_t code) {
    return fmt::format("{:#06x}", code);
}

}  // namespace

std::string formatServices(const std::vector<Service>& services, Format format) {
    if (format == Format::Json) {
        Json array = Json::array();
        for (const Service& service : services) {
            array.push_back({{"id", service.id}, {"address", service.address}});
        }
        return jsonLine(array);
    }
    if (format == Format::Csv) {
        std::string csv = "id,address\n";
        for (const Service& service : services) {
            csv += fmt::format("{},{}\n", service.id,
                               csvField(system::withReplacements(service.address)));
        }
        return csv;
    }
    if (services.empty()) {
        return "no services\n";
    }
    std::size_t width = 2;
    for (const Service& service : services) {
        width = std::max(width, fmt::formatted_size("{}", service.id));
    }
    std::string table = fmt::format("{:>{}}  ADDRESS\n", "ID", width);
    for (const Service& service : services) {
        table += fmt::format("{:>{}}  ", service.id, width);
        text::appendEscaped(table, service.address);
        table += '\n';
    }
    return table;
}

std::string formatInfo(const Plugin& plugin, Format format) {
    if (format == Format::Json) {
        Json commands = Json::array();
        for (const Plugin::CommandRow& row : plugin.commands()) {
            commands.push_back({{"code", commandCode(row.code)}, {"name", row.name}});
        }
        return jsonLine({{"path", plugin.path()}, {"id", plugin.id()}, {"commands", commands}});
    }
    std::string info = fmt::format("plug-in  {}\nid       {}\n\nCODE    COMMAND\n",
                                   text::escaped(plugin.path()), plugin.id());
    for (const Plugin::CommandRow& row : plugin.commands()) {
        info += fmt::format("{}  {}\n", commandCode(row.code), text::escaped(row.name));
    }
    return info;
}

std::string formatMadeFile(const std::string& path, Format format) {
    return format == Format::Json ? jsonLine({{"path", path}})
                                  : "made " + text::escaped(path) + '\n';
}

}  // namespace qv::host
