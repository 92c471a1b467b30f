// SPDX-License-Identifier: Apache-2.0

// Formats the output: tables for people, JSON and CSV for programs. Every text ends with a newline
// and is valid UTF-8, whatever bytes an address holds. Tables are escaped by the rules of QvText.h,
// and JSON is ASCII, so that both are safe on a terminal. In JSON and CSV, U+FFFD replaces a
// character that is not UTF-8.
#ifndef QVHOST_CLI_OUTPUT_H
#define QVHOST_CLI_OUTPUT_H

#include <string>
#include <vector>

#include "server/Plugin.h"
#include "server/Service.h"

namespace qv::host {

enum class Format { Table, Json, Csv };

// Formats services. A table has the columns ID and ADDRESS, or is a line that says that there are
// none. JSON is one array on one line, [{"id":1,"address":"..."}]. In CSV, a line
// feed ends each line, the header is id,address, and fields are quoted by RFC 4180.
std::string formatServices(const std::vector<Service>& services, Format format);

// Formats the plug-in's path, identifier and command table. JSON is one object on one line,
// {"path":"...","id":2,"commands":[{"code":"0x0200","name":"..."}]}.
std::string formatInfo(const Plugin& plugin, Format format);

// Formats the message that a file was made. JSON is one object on one line, {"path":"..."}.
std::string formatMadeFile(const std::string& path, Format format);

}  // namespace qv::host

#endif  // QVHOST_CLI_OUTPUT_H
