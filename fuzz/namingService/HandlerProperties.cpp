// SPDX-License-Identifier: Apache-2.0

#include "namingService/HandlerProperties.h"

#include <string>

#include "gen_lite/WireFormat.h"
#include "namingService/ModelledPlugin.h"
#include "support/ConfigurationDocuments.h"
#include "support/Input.h"

namespace qv::fuzz {
namespace {

std::string nextService(Input& input) {
    const std::int32_t id = input.number();
    return encodedService(id, input.text());
}

std::string goodDocument(Input& input) {
    const std::int32_t id = input.number();
    return tests::document(tests::entryOf({{id, input.text()}}) +
                           "\t<key>Other</key>\n\t<true/>\n");
}

// Makes a request to an initialised plug-in. Returns false if the letter stands for no request.
bool request(char letter, ModelledPlugin& plugin, Input& input) {
    switch (letter) {
        case 'r':
            plugin.registerServices(nextService(input));
            return true;
        case 'u':
            plugin.unregisterServices(encodedService(input.number(), ""));
            return true;
        case 'R':
            plugin.registerServices(input.text());
            return true;
        case 'U':
            plugin.unregisterServices(input.text());
            return true;
        default:
            return false;
    }
}

void changeFiles(char letter, ModelledFiles& files, Input& input) {
    switch (letter) {
        case 'w':
            return files.write(input.text());
        case 'W':
            return files.replace(input.text());
        case 'g':
            return files.write(goodDocument(input));
        case 'd':
            return files.replaceByDirectory();
        case 'x':
            return files.remove();
        case 'b':
            return files.writeBackup(input.text());
        case 'y':
            return files.removeBackup();
        case 'c':
            if (files.model.backup) {
                files.replace(files.model.backup->bytes);
            }
            return;
        case 'h':
            if (files.model.mainFile) {
                files.write(files.model.mainFile->bytes.substr(0, input.byte()));
            }
            return;
        default:
            return;
    }
}

}  // namespace

void checkHandlerProperties(const std::uint8_t* data, std::size_t size) {
    ModelledPlugin plugin;
    for (Input input(data, size); !input.isEmpty(); plugin.check()) {
        const char letter = static_cast<char>(input.byte());
        switch (letter) {
            case 'i':
                plugin.initialize();
                break;
            case 'f':
                plugin.finalize();
                break;
            case 's':
                plugin.finalize();
                plugin.initialize();
                break;
            case 'L':
                plugin.setDebugLevel(input.text());
                break;
            case 'n':
                plugin.callWithoutArguments();
                break;
            default:
                if (!plugin.isInitialized() || !request(letter, plugin, input)) {
                    changeFiles(letter, plugin.files, input);
                }
        }
    }
}

}  // namespace qv::fuzz
