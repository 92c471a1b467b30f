// What the host prints, as text: tables for people, JSON and CSV for programs. Every text ends with
// a newline. Whatever bytes an address holds, the text is valid UTF-8, and a table and JSON are
// safe on a terminal: a table is escaped as QvText.h has it; in JSON everything outside ASCII is
// escaped. In JSON and CSV, U+FFFD replaces a byte that is not UTF-8.
#ifndef QVHOST_CLI_OUTPUT_H
#define QVHOST_CLI_OUTPUT_H

#include <string>
#include <vector>

#include "cli/Service.h"
#include "server/Plugin.h"

namespace qv::host {

enum class Format { Table, Json, Csv };

// Table: the columns ID and ADDRESS, or a line that says there are none. JSON: one array on one
// line, [{"id":1,"address":"..."}]. CSV: as RFC 4180 has it, with the header id,address.
std::string formatServices(const std::vector<Service>& services, Format format);

// The plug-in's path, identifier and command table. JSON: one object on one line,
// {"path":"...","id":2,"commands":[{"code":"0x0200","name":"..."}]}.
std::string formatInfo(const Plugin& plugin, Format format);

// Says that a file was made. JSON: one object on one line, {"path":"..."}.
std::string formatMadeFile(const std::string& path, Format format);

}  // namespace qv::host

#endif  // QVHOST_CLI_OUTPUT_H
