// SPDX-License-Identifier: Apache-2.0

// Lists the symbols of a library file with nm.
#ifndef QV_TESTS_SHARED_LIBRARY_H
#define QV_TESTS_SHARED_LIBRARY_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace qv::tests {

// Maps each symbol's name to its value.
using Symbols = std::map<std::string, std::uintptr_t>;

// Returns the symbols that nm lists with these options.
inline Symbols listedSymbols(const std::string& options, const std::string& file) {
    const std::string command = "nm " + options + " '" + file + "'";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(::popen(command.c_str(), "r"),
                                                                 ::pclose);
    Symbols symbols;
    char line[4096];
    while (output != nullptr && std::fgets(line, sizeof line, output.get()) != nullptr) {
        // A line has the value in sixteen digits, a blank, the kind, a blank and the name.
        std::string name(line);
        name.erase(name.find_last_not_of('\n') + 1);
        name.erase(0, 19);
#ifdef __APPLE__
        name.erase(0, 1);
#endif
        symbols[name] = static_cast<std::uintptr_t>(std::strtoull(line, nullptr, 16));
    }
    return symbols;
}

// Returns the names that the library exports.
inline std::set<std::string> exportedSymbols(const std::string& file) {
#ifdef __APPLE__
    const Symbols symbols = listedSymbols("-gU", file);
#else
    const Symbols symbols = listedSymbols("-D --defined-only", file);
#endif
    std::set<std::string> names;
    for (const auto& [name, value] : symbols) {
        names.insert(name);
    }
    return names;
}

// Returns all symbols that the library defines, with their names in C++ spelling.
inline Symbols definedSymbols(const std::string& file) {
    return listedSymbols("-C --defined-only", file);
}

}  // namespace qv::tests

#endif  // QV_TESTS_SHARED_LIBRARY_H
