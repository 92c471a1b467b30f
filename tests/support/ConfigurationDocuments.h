// SPDX-License-Identifier: Apache-2.0

// Gives the exact bytes of the configuration file as a save writes it.
#ifndef QV_TESTS_CONFIGURATION_DOCUMENTS_H
#define QV_TESTS_CONFIGURATION_DOCUMENTS_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qv::tests {

inline constexpr char kConfigurationFile[] = "namingService.conf.plist";

// Returns the document whose root has the keys and values in the lines of `content`.
inline std::string document(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n" +
           content + "</dict>\n</plist>\n";
}

inline std::string escaped(const std::string& text) {
    std::string escaped;
    for (const char character : text) {
        switch (character) {
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '&':
                escaped += "&amp;";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

// Returns the lines of the directory's entry. Needs at least one service.
inline std::string entryOf(const std::vector<std::pair<std::int32_t, std::string>>& services) {
    std::string entry = "\t<key>Address</key>\n\t<dict>\n\t\t<key>services</key>\n\t\t<array>\n";
    for (const auto& [id, address] : services) {
        entry += "\t\t\t<dict>\n\t\t\t\t<key>address</key>\n\t\t\t\t<string>" + escaped(address) +
                 "</string>\n\t\t\t\t<key>id</key>\n\t\t\t\t<integer>" + std::to_string(id) +
                 "</integer>\n\t\t\t</dict>\n";
    }
    return entry + "\t\t</array>\n\t</dict>\n";
}

inline std::string documentOf(const std::vector<std::pair<std::int32_t, std::string>>& services) {
    return document(entryOf(services));
}

}  // namespace qv::tests

#endif  // QV_TESTS_CONFIGURATION_DOCUMENTS_H
