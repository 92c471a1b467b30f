// SPDX-License-Identifier: Apache-2.0

#include "qvhost/HostProperties.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "gen_lite/WireFormat.h"
#include "qvhost/HostFiles.h"
#include "qvhost/ModelledHost.h"
#include "support/ConfigurationDocuments.h"
#include "support/Input.h"

namespace qv::fuzz {
namespace {

// Returns a document with the services and two other keys. One of them is so long that a write
// which is cut short can take a part out of it.
std::string documentOf(const Services& services, std::int32_t other) {
    constexpr std::size_t kLong = 600;
    return tests::document(tests::entryOf({services.begin(), services.end()}) +
                           "\t<key>Long</key>\n\t<string>" + std::string(kLong, 'k') +
                           "</string>\n\t<key>Other</key>\n\t<integer>" + std::to_string(other) +
                           "</integer>\n");
}

std::string goodDocument(Input& input) {
    const std::int32_t id = input.number();
    std::string address = input.text();
    return documentOf({{id, std::move(address)}}, input.number());
}

Request registrationOf(std::int32_t id, const std::string& address) {
    return {true, encodedService(id, address)};
}

Request withdrawalOf(std::int32_t id) {
    return {false, encodedService(id, "")};
}

std::vector<Request> severalRequests(Input& input) {
    constexpr unsigned kMost = 4;
    std::vector<Request> requests;
    for (unsigned rest = input.byte() % kMost + 1U; rest > 0; --rest) {
        const bool isRegistration = input.byte() % 2 != 0;
        const std::int32_t id = input.number();
        const std::string address = input.text();
        requests.push_back(isRegistration ? registrationOf(id, address) : withdrawalOf(id));
    }
    return requests;
}

// Makes requests to a host that runs.
void request(char letter, ModelledHost& host, Input& input) {
    constexpr std::size_t kUnit = 16;
    const bool isRaw = letter == 'R' || letter == 'U';
    if (isRaw) {
        return host.make({{letter == 'R', input.text()}});
    }
    if (letter == 'm') {
        return host.make(severalRequests(input));
    }
    const std::int32_t id = input.number();
    if (letter == 'u') {
        return host.make({withdrawalOf(id)});
    }
    host.make({registrationOf(
        id, letter == 'r' ? input.text() : std::string(kUnit * input.byte(), 'x'))});
}

// Changes the services or the other key of a file that can be read.
void edit(char letter, Input& input) {
    FileContent content = contentIn(HostFiles::file().value_or(""));
    if (!content.isWhole) {
        return;
    }
    std::int32_t other = 0;
    for (std::size_t key = 0; key < content.otherKeys.elements.size(); key += 2) {
        if (content.otherKeys.elements[key].text == u"Other") {
            other = content.otherKeys.elements[key + 1].sint32.value_or(0);
        }
    }
    const std::int32_t number = input.number();
    if (letter == 'e') {
        content.services[number] = input.text();
    } else if (letter == 'v') {
        content.services.erase(number);
    } else {
        other = number;
    }
    HostFiles::write(documentOf(content.services, other));
}

void cut(Input& input) {
    constexpr std::size_t kParts = 256;
    const std::size_t part = input.byte();
    if (const auto file = HostFiles::file()) {
        HostFiles::write(file->substr(0, file->size() * part / kParts));
    }
}

// Changes the plug-in's files. Returns false if the letter stands for another step.
bool changeFiles(char letter, Input& input) {
    switch (letter) {
        case 'w':
            HostFiles::write(input.text());
            return true;
        case 'W':
            HostFiles::replace(input.text());
            return true;
        case 'g':
            HostFiles::write(goodDocument(input));
            return true;
        case 'e':
        case 'v':
        case 'o':
            edit(letter, input);
            return true;
        case 'h':
            cut(input);
            return true;
        case 'x':
            HostFiles::remove();
            return true;
        case 'd':
            HostFiles::replaceByDirectory();
            return true;
        case 'c':
            if (const auto backup = HostFiles::backup()) {
                HostFiles::replace(*backup);
            }
            return true;
        case 'b':
            HostFiles::writeBackup(input.text());
            return true;
        case 'B':
            HostFiles::writeBackup(goodDocument(input));
            return true;
        case 'y':
            HostFiles::removeBackup();
            return true;
        default:
            return false;
    }
}

// Carries out a step of the host itself.
void step(char letter, ModelledHost& host, Input& input) {
    switch (letter) {
        case 'i':
        case 'I':
            return host.isRunning() ? void() : host.start(letter == 'I');
        case 'q':
        case 's':
            if (host.isRunning()) {
                host.stop();
            }
            return letter == 's' ? host.start(false) : void();
        case 'l':
            return host.isRunning() ? host.reload() : void();
        case 't':
            return host.isRunning() ? host.turn() : void();
        case 'r':
        case 'f':
        case 'u':
        case 'R':
        case 'U':
        case 'm':
            return host.isRunning() ? request(letter, host, input) : void();
        default:
            return;
    }
}

void changeDisk(char letter, ModelledHost& host, Input& input) {
    constexpr std::size_t kUnit = 256;
    switch (letter) {
        case 'F':
            return host.limit(kUnit * input.byte());
        case 'G':
            return host.limit(std::nullopt);
        case 'j':
            if (!host.isRunning()) {
                HostFiles::damageRecord(input.byte());
                host.recordIsDamaged();
            }
            return;
        default:
            return;
    }
}

}  // namespace

void checkHostProperties(const std::uint8_t* data, std::size_t size) {
    ModelledHost host;
    for (Input input(data, size); !input.isEmpty() && host.canGoOn();) {
        const char letter = static_cast<char>(input.byte());
        if (letter == 'k') {
            host.crash();
        } else if (letter == 'K') {
            const unsigned moment = input.byte();
            const unsigned tear = input.byte();
            const char next = static_cast<char>(input.byte());
            host.crashDuring([&] { step(next, host, input); }, moment, tear);
        } else if (changeFiles(letter, input)) {
            host.fileIsEdited();
        } else {
            step(letter, host, input);
            changeDisk(letter, host, input);
        }
    }
}

}  // namespace qv::fuzz
