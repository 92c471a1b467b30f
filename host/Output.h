// What the host prints, as text: tables for people, JSON for programs. Every text ends with a
// newline. Whatever bytes an address holds, the text is safe on a terminal and valid UTF-8: in a
// table control characters are escaped and a byte that is not UTF-8 comes out as \xNN; in JSON
// everything outside ASCII is escaped and a byte that is not UTF-8 is replaced by U+FFFD.
#ifndef QVHOST_OUTPUT_H
#define QVHOST_OUTPUT_H

#include <string>
#include <vector>

#include "Plugin.h"
#include "Service.h"

namespace qv::host {

enum class Format { Table, Json };

// Table: the columns ID and ADDRESS, or a line that says there are none. JSON: one array on one
// line, [{"id":1,"address":"..."}].
std::string formatServices(const std::vector<Service>& services, Format format);

// The plug-in's path, identifier and command table. JSON: one object on one line,
// {"path":"...","id":2,"commands":[{"code":"0x0200","name":"..."}]}.
std::string formatInfo(const Plugin& plugin, Format format);

// Says that a file was made. JSON: one object on one line, {"path":"..."}.
std::string formatMadeFile(const std::string& path, Format format);

}  // namespace qv::host

#endif  // QVHOST_OUTPUT_H
