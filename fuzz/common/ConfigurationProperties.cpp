// SPDX-License-Identifier: Apache-2.0

#include "common/ConfigurationProperties.h"

#include "cli/HostPaths.h"

#include <stdexcept>

#include "common/StoredDocument.h"
#include "gen_lite/WireFormat.h"
#include "namingService/ModelledPlugin.h"
#include "server/StoredFile.h"
#include "support/Input.h"
#include "support/Require.h"

namespace qv::fuzz {
namespace {

// Checks that an offline listing shows what the plug-in starts with on the same files, or fails if
// neither file can be loaded, and that it changes neither file.
void checkOffline(const ModelledFiles& files, bool isLoaded, const Directory& expected) {
    host::StoredFile::Contents listing;
    try {
        listing = host::StoredFile(host::configurationFile("")).read();
        require(isLoaded, "an offline listing reads what the plug-in does not");
    } catch (const std::runtime_error&) {
        require(!isLoaded, "an offline listing does not read what the plug-in does");
    }
    require(listing.services.size() == expected.size(), "an offline listing has other services");
    auto listed = listing.services.begin();
    for (const auto& [id, service] : expected) {
        require(listed->id == id && listed->address == service.address.value_or(""),
                "an offline listing has another service");
        ++listed;
    }
    files.check();
}

}  // namespace

void checkConfigurationProperties(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const bool hasFile = input.byte() == 'F';
    const bool hasBackup = input.byte() == 'B';
    const std::int32_t id = input.number();
    const std::string address = input.text();

    ModelledPlugin plugin;
    ModelledFiles& files = plugin.files;
    if (hasFile) {
        files.write(input.longText());
    }
    if (hasBackup) {
        files.writeBackup(input.rest());
    }
    const bool isFileGood = files.model.mainFile && files.model.mainFile->isGood;
    const std::optional<Document> source = isFileGood ? files.model.mainFile : files.model.backup;
    const bool isLoaded = source && source->isGood;

    const Directory expected = isLoaded ? source->services : Directory();

    checkOffline(files, isLoaded, expected);
    plugin.initialize();
    plugin.check();
    require(files.model.memory == expected, "the start has other services");

    const Directory before = files.model.memory;
    plugin.registerServices(encodedService(id, address));
    plugin.check();
    const std::optional<Directory> stored = asStored(files.model.memory);
    const bool isSaved = isLoaded && stored && !(files.model.memory == before);
    if (isSaved) {
        require(files.model.backup && files.model.backup->bytes == source->bytes,
                "the backup is not the file of before the save");
    }

    // The saved file has the services. If no document can express them together with the other
    // keys, the saved file cannot be loaded, and the second start uses the backup.
    const Directory kept = !isSaved                       ? before
                           : files.model.mainFile->isGood ? files.model.mainFile->services
                                                          : source->services;
    plugin.finalize();
    checkOffline(files, isLoaded, kept);
    plugin.initialize();
    plugin.check();
    require(files.model.memory == kept, "the second start has other services");
}

std::string configurationInput(const std::optional<std::string>& file,
                               const std::optional<std::string>& backup) {
    std::string input = file ? "F" : "-";
    input += backup ? "B" : "-";
    input += std::string("\x07\x01") + "a";
    if (file) {
        input += static_cast<char>(file->size() >> 8);
        input += static_cast<char>(file->size() & 0xFF);
        input += *file;
    }
    return input + backup.value_or("");
}

}  // namespace qv::fuzz
