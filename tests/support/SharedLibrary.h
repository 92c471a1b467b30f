// What is in a library file.
#ifndef QV_TESTS_SHARED_LIBRARY_H
#define QV_TESTS_SHARED_LIBRARY_H

#include <cstdio>
#include <memory>
#include <set>
#include <string>

namespace qv::tests {

// The symbols that nm lists with these options, one a line, by name.
inline std::set<std::string> listedSymbols(const std::string& options, const std::string& file) {
    const std::string command = "nm " + options + " '" + file + "'";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(::popen(command.c_str(), "r"),
                                                                 ::pclose);
    std::set<std::string> symbols;
    char line[4096];
    while (output != nullptr && std::fgets(line, sizeof line, output.get()) != nullptr) {
        // The value in sixteen digits, a blank, the kind, a blank, the name.
        std::string symbol(line);
        symbol.erase(symbol.find_last_not_of('\n') + 1);
        symbol.erase(0, 19);
#ifdef __APPLE__
        symbol.erase(0, 1);
#endif
        symbols.insert(symbol);
    }
    return symbols;
}

// The names that the library shows to the dynamic linker.
inline std::set<std::string> exportedSymbols(const std::string& file) {
#ifdef __APPLE__
    return listedSymbols("-gU", file);
#else
    return listedSymbols("-D --defined-only", file);
#endif
}

// All that it defines, as C++ spells it.
inline std::set<std::string> definedSymbols(const std::string& file) {
    return listedSymbols("-C --defined-only", file);
}

}  // namespace qv::tests

#endif  // QV_TESTS_SHARED_LIBRARY_H
